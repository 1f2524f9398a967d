// delivery_file_test - base of the suites that change a mailname's delivery file
//
// Uses the real path of info in example.com, in a home made for each test.

#ifndef MAILVEK_TESTS_SUPPORT_DELIVERY_FILE_TEST_H
#define MAILVEK_TESTS_SUPPORT_DELIVERY_FILE_TEST_H

#include "support/mailname_home_test.h"
#include "support/rights.h"
#include "support/syscall_faults.h"
#include "support/temp_dir.h"

#include <cstdlib>
#include <functional>
#include <string>

class DeliveryFileTest : public MailnameHomeTest
{
protected:
    // The file's content if its owner and mode are right, otherwise owner and mode.
    std::string left() const
    {
        std::string const rights = rightsOf(file);
        return rights == "-rw------- popuser:popuser" ? readFile(file)
                                                      : rights + ": " + readFile(file);
    }

    // The output on each stream of a call that must return -1 because popuser is unknown.
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

    std::string const file = home + "/.qmail";
};

#endif
