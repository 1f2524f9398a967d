// delivery_file_test - base of the suites that change a mailname's delivery file
//
// On real paths: the home of info in example.com, made for each test and removed after it.

#ifndef MAILVEK_TESTS_SUPPORT_DELIVERY_FILE_TEST_H
#define MAILVEK_TESTS_SUPPORT_DELIVERY_FILE_TEST_H

#include "support/child_run.h"
#include "support/host_test.h"
#include "support/rights.h"
#include "support/syscall_faults.h"
#include "support/temp_dir.h"

#include <cerrno>
#include <cstdlib>
#include <filesystem>
#include <functional>
#include <string>

class DeliveryFileTest : public HostTest
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

    // What the file holds afterwards, when it has its owner and its mode; both otherwise.
    std::string left() const
    {
        std::string const rights = rightsOf(file);
        return rights == "-rw------- popuser:popuser" ? readFile(file)
                                                      : rights + ": " + readFile(file);
    }

    // What a call that must give -1 prints on each stream.
    static std::string failureOf(std::function<int()> const& call)
    {
        auto const run = inChild([&] { return call() == -1 ? 0 : 1; });
        EXPECT_EQ(run.status, 0);
        EXPECT_EQ(run.out, run.err);
        return run.err;
    }

    // The same for root without its user.
    static std::string failureWithoutPopuser(std::function<int()> const& call)
    {
        TempDir const dir;
        std::string const passwd = dir / "passwd";
        EXPECT_EQ(system(("sed /^popuser:/d /etc/passwd >" + passwd + " && mount --bind " + passwd +
                          " /etc/passwd")
                             .c_str()),
                  0);
        std::string const report = failureOf(call);
        EXPECT_EQ(system("umount /etc/passwd"), 0);
        return report;
    }

    std::string const domain = "/var/qmail/mailnames/example.com";
    std::string const home = domain + "/info";
    std::string const file = home + "/.qmail";
};

#endif
