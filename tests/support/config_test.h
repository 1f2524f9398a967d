// config_test - base of the tests that change Postfix's configuration with the real postconf, or
// with a stand-in for it
//
// The code under test runs in its own process each time, because the managers exist once per
// process. At the end main.cf and master.cf are put back and the parking file is removed.

#ifndef MAILVEK_TESTS_SUPPORT_CONFIG_TEST_H
#define MAILVEK_TESTS_SUPPORT_CONFIG_TEST_H

#include "support/child_run.h"
#include "support/fd_census.h"
#include "support/host_test.h"
#include "support/stand_in.h"
#include "util/errors.h"

#include <boost/logic/tribool.hpp>
#include <gtest/gtest.h>

#include <exception>
#include <filesystem>
#include <functional>
#include <iostream>
#include <set>
#include <stdexcept>
#include <string>
#include <typeinfo>

#include <sys/wait.h>

class ConfigTest : public HostTest
{
protected:
    void SetUp() override
    {
        HostTest::SetUp();
        if (HasFatalFailure())
            return;
        postconf.prepare();
        shellRun("cp -a /etc/postfix " + saved.path());
    }

    void TearDown() override
    {
        postconf.remove();
        shellRun("rm -rf /etc/postfix/* " + parking + "* && cp -a " + saved.path() +
                 "/postfix/. /etc/postfix");
    }

    // The code's output and exception, as "text" or "text!Class: what". It must print nothing on
    // standard error and leave no descriptor and no child.
    static std::string outcomeOf(std::function<void()> const& code)
    {
        ChildRun const run = inChild([&] {
            std::set<int> const descriptors = openDescriptors();
            attempt(code);
            if (openDescriptors() != descriptors)
                std::cout << "[descriptors are left]";
            if (waitpid(-1, nullptr, WNOHANG) != -1)
                std::cout << "[a child is left]";
            return 0;
        });
        EXPECT_EQ(run.err, "");
        EXPECT_EQ(run.status, 0) << "signal " << run.signal;
        return run.out;
    }

    static std::string trueSetting(std::string const& name)
    {
        std::string text;
        FILE* const pipe = popen(("postconf -h " + name + " 2>/dev/null").c_str(), "r");
        for (int c = getc(pipe); c != EOF; c = getc(pipe))
            text += static_cast<char>(c);
        pclose(pipe);
        return text;
    }

    StandIn postconf{"/usr/sbin/postconf"};
    std::string const main_cf = "/etc/postfix/main.cf";
    std::string const master_cf = "/etc/postfix/master.cf";
    std::string const parking = "/var/spool/postfix/orvek/master.cf.disabled";

private:
    static void attempt(std::function<void()> const& code)
    {
        using namespace orvek::mail;
        try {
            code();
        } catch (postfix::PostfixConfigurationError const& e) {
            std::cout << "!PostfixConfigurationError: " << e.what();
        } catch (postfix::PostfixDatabaseError const& e) {
            std::cout << "!PostfixDatabaseError: " << e.what();
        } catch (std::bad_cast const& e) {
            std::cout << "!bad_cast: " << e.what();
        } catch (FSError const& e) {
            std::cout << "!FSError: " << e.what();
        } catch (orvek::SystemError const& e) {
            std::cout << "!SystemError: " << e.what();
        } catch (std::out_of_range const& e) {
            std::cout << "!out_of_range: " << e.what();
        } catch (std::ios_base::failure const&) {
            std::cout << "!ios_base::failure";
        } catch (std::logic_error const& e) {
            std::cout << "!logic_error: " << e.what();
        }
    }

    TempDir const saved;
};

#endif
