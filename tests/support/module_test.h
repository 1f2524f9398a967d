// module_test - base of the tests of the manager of master.cf
//
// master.cf has a comment, an empty line and two services.

#ifndef MAILVEK_TESTS_SUPPORT_MODULE_TEST_H
#define MAILVEK_TESTS_SUPPORT_MODULE_TEST_H

#include "postfix/master_cf/module_manager.h"
#include "support/config_test.h"

#include <iostream>
#include <string>

#include <sys/stat.h>

inline constexpr auto either = boost::indeterminate;

inline constexpr char smtp[] = "smtp  inet  n - y - - smtpd\n  -o a=b";
inline constexpr char relay[] = "relay unix - - y - - smtp";

class ModuleTest : public ConfigTest
{
protected:
    void SetUp() override
    {
        ConfigTest::SetUp();
        if (!HasFatalFailure())
            writeFile(master_cf, head + smtp + "\n" + relay + "\n");
    }

    void TearDown() override
    {
        EXPECT_NE(system("ls /etc/postfix /var/spool/postfix/orvek | "
                         "grep -E '(master.cf|disabled)[A-Za-z0-9]{6}$'"),
                  0)
            << "a temporary file is left";
        ConfigTest::TearDown();
    }

    // Runs code on a loaded manager, in its own process.
    template<class Code>
    static std::string loaded(Code const& code)
    {
        return outcomeOf([&] {
            orvek::mail::postfix::ModuleManager& manager =
                orvek::mail::postfix::ModuleManager::getInstance();
            manager.loadModules(false);
            code(manager);
        });
    }

    // Does the same and stores. The outcome begins with the result of storing.
    template<class Code>
    static std::string changed(Code const& code)
    {
        return loaded([&](orvek::mail::postfix::ModuleManager& manager) {
            code(manager);
            std::cout << manager.storeModules(false);
        });
    }

    static ino_t inode(std::string const& path)
    {
        struct stat info = {};
        return stat(path.c_str(), &info) == 0 ? info.st_ino : 0;
    }

    static orvek::mail::postfix::ModuleInfo submission()
    {
        orvek::mail::postfix::ModuleInfo info;
        info.name = "submission";
        info.privateService = false;
        info.command = {"smtpd", "-o a=b"};
        return info;
    }

    std::string const head = "# head\n\n";
    std::string const submission_text = "submission inet n - n - - smtpd -o a=b";
};

#endif
