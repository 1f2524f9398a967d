// mailname_home_test - base of the suites that work in the home of a mailname
//
// Uses the real home of info in example.com, made for each test and removed after it.

#ifndef MAILVEK_TESTS_SUPPORT_MAILNAME_HOME_TEST_H
#define MAILVEK_TESTS_SUPPORT_MAILNAME_HOME_TEST_H

#include "support/child_run.h"
#include "support/host_test.h"

#include <gtest/gtest.h>

#include <cerrno>
#include <filesystem>
#include <functional>
#include <string>

class MailnameHomeTest : public HostTest
{
protected:
    void SetUp() override
    {
        HostTest::SetUp();
        if (HasFatalFailure())
            return;
        std::filesystem::remove_all(domain);
        std::filesystem::create_directories(home);
        errno = 0;
    }
    void TearDown() override
    {
        if (!HasFatalFailure())
            std::filesystem::remove_all(domain);
    }

    // The output on each stream of a call that must return -1.
    static std::string failureOf(std::function<int()> const& call)
    {
        auto const run = inChild([&] { return call() == -1 ? 0 : 1; });
        EXPECT_EQ(run.status, 0);
        EXPECT_EQ(run.out, run.err);
        return run.err;
    }

    std::string const domain = "/var/qmail/mailnames/example.com";
    std::string const home = domain + "/info";
};

#endif
