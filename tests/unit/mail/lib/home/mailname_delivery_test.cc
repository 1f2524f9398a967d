#include "mail/lib/home/mailname_delivery.h"

#include "support/call_faults.h"
#include "support/delivery_file_test.h"
#include "support/report.h"

#include <gtest/gtest.h>

#include <sys/syscall.h>

namespace {

constexpr char delivery[] = "| /usr/bin/deliverquota ./Maildir\n";

class MailnameDeliveryOnHost : public DeliveryFileTest
{
protected:
    int add() const { return dotqmail_add_delivery(file.c_str()); }
    int remove() const { return dotqmail_remove_delivery(file.c_str()); }
    int reset() const { return dotqmail_reset(file.c_str()); }

    std::string noFile(std::string const& text) const { return withErrno(text, ENOENT); }
};

} // namespace

// ----------------------------------------------------------------------------------- adding

TEST_F(MailnameDeliveryOnHost, CreatesAMissingFileAndLeavesNoTraceInErrno)
{
    EXPECT_EQ(add(), 0);
    EXPECT_EQ(errno, 0);
    EXPECT_EQ(left(), delivery);
}

TEST_F(MailnameDeliveryOnHost, AddsDeliveryAtTheEndAndKeepsTheLineOfAReset)
{
    writeFile(file, "| true\n&a@example.net\n");
    EXPECT_EQ(add(), 0);
    EXPECT_EQ(left(), std::string("| true\n&a@example.net\n") + delivery);
}

TEST_F(MailnameDeliveryOnHost, NeverDoublesDeliveryAndMovesItToTheEnd)
{
    writeFile(file, std::string(delivery) + "&a@example.net\n" + delivery);
    EXPECT_EQ(add(), 0);
    EXPECT_EQ(add(), 0);
    EXPECT_EQ(left(), std::string("&a@example.net\n") + delivery);
}

TEST_F(MailnameDeliveryOnHost, ReplacesTheOlderForm)
{
    writeFile(file, "# kept\n./Maildir/\n&a@example.net\n./Maildir/\n");
    EXPECT_EQ(add(), 0);
    EXPECT_EQ(left(), std::string("# kept\n&a@example.net\n") + delivery);
}

TEST_F(MailnameDeliveryOnHost, LeavesLinesAloneThatOnlyResembleDelivery)
{
    std::string const others = " ./Maildir/\n./Maildir\n./Maildir/new\n|/usr/bin/deliverquota "
                               "./Maildir\n| /usr/bin/deliverquota ./Maildir 1\n\n";
    writeFile(file, others);
    EXPECT_EQ(add(), 0);
    EXPECT_EQ(left(), others + delivery);
    EXPECT_EQ(remove(), 0);
    EXPECT_EQ(left(), others);
}

TEST_F(MailnameDeliveryOnHost, SetsTheModeWhateverTheUmask)
{
    mode_t const before = umask(0777);
    EXPECT_EQ(add(), 0);
    EXPECT_EQ(left(), delivery);
    EXPECT_EQ(reset(), 0);
    umask(before);
    EXPECT_EQ(left(), "| true\n");
}

TEST_F(MailnameDeliveryOnHost, SaysThatALineCannotBeAdded)
{
    std::filesystem::remove_all(home);
    EXPECT_EQ(failureOf([&] { return add(); }),
              noFile("Unable to open file " + file + ": No such file or directory\n") +
                  noFile("Unable to add string to " + file + " file."));
}

TEST_F(MailnameDeliveryOnHost, SaysThatTheFileCannotBeGivenAwayAndKeepsTheLine)
{
    EXPECT_EQ(failureOf([&] {
                  failSystemCall(SYS_chown, EPERM);
                  return add();
              }),
              withErrno("ERROR: unable to chown " + file + ": Operation not permitted\n", EPERM));
    EXPECT_EQ(readFile(file), delivery);
}

TEST_F(MailnameDeliveryOnHost, SaysThatThereIsNoUserToGiveTheFileTo)
{
    EXPECT_EQ(failureWithoutPopuser([&] { return add(); }), "user popuser not found\n");
    EXPECT_EQ(failureWithoutPopuser([&] { return remove(); }), "user popuser not found\n");
    EXPECT_EQ(failureWithoutPopuser([&] { return reset(); }), "user popuser not found\n");
}

// --------------------------------------------------------------------------------- removing

TEST_F(MailnameDeliveryOnHost, RemovesBothFormsAndKeepsOtherLines)
{
    writeFile(file, std::string("| true\n./Maildir/\n") + delivery + "&a@example.net\n" + delivery);
    EXPECT_EQ(remove(), 0);
    EXPECT_EQ(left(), "| true\n&a@example.net\n");
}

TEST_F(MailnameDeliveryOnHost, RemovesDeliveryThatIsNotThere)
{
    writeFile(file, "| true\n");
    EXPECT_EQ(remove(), 0);
    EXPECT_EQ(remove(), 0);
    EXPECT_EQ(left(), "| true\n");
}

TEST_F(MailnameDeliveryOnHost, CannotRemoveDeliveryFromAMissingFile)
{
    EXPECT_EQ(failureOf([&] { return remove(); }),
              noFile("Unable to remove string from " + file + " file"));
    EXPECT_EQ(rightsOf(file), "missing");
}

// -------------------------------------------------------------------------------- resetting

TEST_F(MailnameDeliveryOnHost, ResetsAnyFileToOneLine)
{
    EXPECT_EQ(reset(), 0);
    EXPECT_EQ(left(), "| true\n");
    writeFile(file, std::string(delivery) + "&a@example.net\n");
    EXPECT_EQ(reset(), 0);
    EXPECT_EQ(left(), "| true\n");
}

TEST_F(MailnameDeliveryOnHost, ResetsToAFileThatNobodyElseReadsEvenIfItsRightsCannotBeSet)
{
    CallFailure const failing("chown", EPERM);
    EXPECT_EQ(failureOf([&] { return reset(); }),
              withErrno("ERROR: unable to chown " + file + ": Operation not permitted\n", EPERM));
    EXPECT_EQ(rightsOf(file), "-rw------- root:root");
}

TEST_F(MailnameDeliveryOnHost, SaysThatAFileCannotBeOpenedForAReset)
{
    std::filesystem::create_directory(file);
    EXPECT_EQ(failureOf([&] { return reset(); }),
              withErrno("Unable to open " + file + ": Is a directory", EISDIR));
}

TEST_F(MailnameDeliveryOnHost, RemovesAFileThatCannotBeWrittenTo)
{
    ASSERT_EQ(system(("mount -t tmpfs -o size=4096 tmpfs " + home).c_str()), 0);
    writeFile(home + "/full", std::string(4096, 'x'));
    EXPECT_EQ(failureOf([&] { return reset(); }),
              withErrno("Unable to write to " + file + ": No space left on device", ENOSPC));
    EXPECT_EQ(rightsOf(file), "missing");
    EXPECT_EQ(system(("umount " + home).c_str()), 0);
}

TEST_F(MailnameDeliveryOnHost, TellsWhyAFileCannotBeWrittenThoughItCannotBeRemovedEither)
{
    ASSERT_EQ(system(("mount -t tmpfs -o size=4096 tmpfs " + home).c_str()), 0);
    writeFile(home + "/full", std::string(4096, 'x'));
    EXPECT_EQ(failureOf([&] {
                  failSystemCall(SYS_unlink, EPERM);
                  return reset();
              }),
              withErrno("Unable to write to " + file + ": No space left on device", ENOSPC));
    EXPECT_EQ(readFile(file), "");
    EXPECT_EQ(system(("umount " + home).c_str()), 0);
}

// ---------------------------------------------------------------------------- by mailname

TEST_F(MailnameDeliveryOnHost, ChangesTheFileOfAMailname)
{
    EXPECT_EQ(add_mailname_delivery("info", "example.com"), 0);
    EXPECT_EQ(left(), delivery);
    EXPECT_EQ(remove_mailname_delivery("info", "example.com"), 0);
    EXPECT_EQ(left(), "");
}

TEST_F(MailnameDeliveryOnHost, ChangesNothingForANameWithoutAPath)
{
    EXPECT_EQ(failureOf([] { return add_mailname_delivery("", "example.com"); }),
              "empty mailname or maildomain\n");
    EXPECT_EQ(failureOf([] { return remove_mailname_delivery(".info", "example.com"); }),
              "empty mailname or maildomain\n");
    EXPECT_EQ(failureOf([] { return remove_mailname_delivery("info", "example.org"); }),
              noFile("Unable to remove string from "
                     "/var/qmail/mailnames/example.org/info/.qmail file"));
}
