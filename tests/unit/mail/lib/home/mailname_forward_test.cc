#include "mail/lib/home/mailname_forward.h"

#include "lib/names/idn.h"
#include "lib/names/idn_error.h"
#include "support/delivery_file_test.h"
#include "support/memory_faults.h"
#include "support/report.h"

#include <gtest/gtest.h>

namespace {

class MailnameForwardOnHost : public DeliveryFileTest
{
protected:
    int add(std::string const& address) const
    {
        return dotqmail_add_forward(file.c_str(), address.c_str());
    }
    int remove(std::string const& address) const
    {
        return dotqmail_remove_forward(file.c_str(), address.c_str());
    }
};

constexpr char unicode_address[] = "gr\xc3\xbc\xc3\x9f@b\xc3\xbc"
                                   "cher.example";
constexpr char ascii_address[] = "gr\xc3\xbc\xc3\x9f@xn--bcher-kva.example";

} // namespace

TEST_F(MailnameForwardOnHost, CreatesAMissingFileAndLeavesNoTraceInErrno)
{
    EXPECT_EQ(add("a@example.net"), 0);
    EXPECT_EQ(errno, 0);
    EXPECT_EQ(left(), "&a@example.net\n");
}

TEST_F(MailnameForwardOnHost, AddsAtTheEndAndKeepsOtherLines)
{
    writeFile(file, "| true\n./Maildir/\n# unknown\n");
    EXPECT_EQ(add("a@example.net"), 0);
    EXPECT_EQ(add("b@example.net"), 0);
    EXPECT_EQ(left(), "| true\n./Maildir/\n# unknown\n&a@example.net\n&b@example.net\n");
}

TEST_F(MailnameForwardOnHost, LeavesOneLineOfATwiceAddedForward)
{
    EXPECT_EQ(add("a@example.net"), 0);
    EXPECT_EQ(add("b@example.net"), 0);
    EXPECT_EQ(add("a@example.net"), 0);
    EXPECT_EQ(left(), "&b@example.net\n&a@example.net\n");
}

TEST_F(MailnameForwardOnHost, StoresTheAsciiFormAndFindsItByEither)
{
    EXPECT_EQ(add(unicode_address), 0);
    EXPECT_EQ(left(), std::string("&") + ascii_address + "\n");
    EXPECT_EQ(add(ascii_address), 0);
    EXPECT_EQ(left(), std::string("&") + ascii_address + "\n");
    EXPECT_EQ(remove(unicode_address), 0);
    EXPECT_EQ(left(), "");
}

TEST_F(MailnameForwardOnHost, RemovesWholeLinesOnlyAndAllOfThem)
{
    writeFile(
        file,
        "&a@example.net\n&a@example.net.org\n&aa@example.net\n&a@example.net\na@example.net\n");
    EXPECT_EQ(remove("a@example.net"), 0);
    EXPECT_EQ(left(), "&a@example.net.org\n&aa@example.net\na@example.net\n");
    EXPECT_EQ(remove("a@example.net"), 0);
    EXPECT_EQ(left(), "&a@example.net.org\n&aa@example.net\na@example.net\n");
}

TEST_F(MailnameForwardOnHost, CannotRemoveAForwardFromAMissingFile)
{
    EXPECT_EQ(failureOf([&] { return remove("a@example.net"); }),
              withErrno("Unable to remove string from " + file + " file.", ENOENT));
    EXPECT_EQ(rightsOf(file), "missing");
}

TEST_F(MailnameForwardOnHost, SaysThatALineCannotBeAdded)
{
    std::filesystem::remove_all(home);
    EXPECT_EQ(failureOf([&] { return add("a@example.net"); }),
              withErrno("Unable to open file " + file + ": No such file or directory\n", ENOENT) +
                  withErrno("Unable to add string to " + file + " file.", ENOENT));
}

TEST_F(MailnameForwardOnHost, RefusesWhatIsNoAddress)
{
    writeFile(file, "&a\n");
    idn_errno = 0; // a text without "@" fails without a code of its own
    std::string const reason = std::string(" failed: ") + idn_strerror(0) + "\n";
    for (std::string const address : {"", "a", "%s"}) {
        EXPECT_EQ(failureOf([&] { return add(address); }),
                  "idn_email_toascii(" + address + ")" + reason);
        EXPECT_EQ(failureOf([&] { return remove(address); }),
                  "idn_email_toascii(" + address + ")" + reason);
    }
    EXPECT_EQ(readFile(file), "&a\n");
}

TEST_F(MailnameForwardOnHost, RefusesAnAddressThatHoldsASecondLine)
{
    writeFile(file, "&a@example.net\n");
    for (char const* const address :
         {"a@example.net\n| /bin/sh", "a\n@example.net", "a@example.net\n"}) {
        EXPECT_EQ(failureOf([&] { return add(address); }),
                  withErrno("Unable to add string to " + file + " file.", EINVAL));
        EXPECT_EQ(failureOf([&] { return remove(address); }),
                  withErrno("Unable to remove string from " + file + " file.", EINVAL));
    }
    EXPECT_EQ(readFile(file), "&a@example.net\n");
}

TEST_F(MailnameForwardOnHost, SaysThatThereIsNoMemoryForTheLine)
{
    auto const withoutMemory = [&](int (*change)(char const*, char const*)) {
        return failureOf([&] {
            AllocationFailure const failure(2); // the first one is for the address
            return change(file.c_str(), "a@example.net");
        });
    };
    EXPECT_EQ(withoutMemory(dotqmail_add_forward),
              withErrno("asprintf(\"&%s\", a@example.net) failed: Cannot allocate memory", ENOMEM));
    EXPECT_EQ(withoutMemory(dotqmail_remove_forward),
              withErrno("asprintf(\"&%s\", a@example.net): Cannot allocate memory", ENOMEM));
    EXPECT_EQ(rightsOf(file), "missing");
}

TEST_F(MailnameForwardOnHost, ReportsAMissingOwner)
{
    EXPECT_EQ(failureWithoutPopuser([&] { return add("a@example.net"); }),
              "user popuser not found\n");
    EXPECT_EQ(failureWithoutPopuser([&] { return remove("a@example.net"); }),
              "user popuser not found\n");
    EXPECT_EQ(readFile(file), "");
}

TEST_F(MailnameForwardOnHost, TakesAnAddressAsNoFormat)
{
    EXPECT_EQ(add("%s%n%d@example.net"), 0);
    EXPECT_EQ(left(), "&%s%n%d@example.net\n");
    EXPECT_EQ(remove("%s%n%d@example.net"), 0);
    EXPECT_EQ(left(), "");
}

TEST_F(MailnameForwardOnHost, ChangesTheFileOfAMailname)
{
    EXPECT_EQ(add_mn_forward("info", "example.com", "a@example.net"), 0);
    EXPECT_EQ(add_mn_forward("info", "example.com", "b@example.net"), 0);
    EXPECT_EQ(left(), "&a@example.net\n&b@example.net\n");
    EXPECT_EQ(rm_mn_forward("info", "example.com", "a@example.net"), 0);
    EXPECT_EQ(left(), "&b@example.net\n");
}

TEST_F(MailnameForwardOnHost, ChangesNothingForANameWithoutAPath)
{
    EXPECT_EQ(failureOf([] { return add_mn_forward("", "example.com", "a@example.net"); }),
              "empty mailname or maildomain\n");
    EXPECT_EQ(failureOf([] { return rm_mn_forward(".x", "example.com", "a@example.net"); }),
              "empty mailname or maildomain\n");
}
