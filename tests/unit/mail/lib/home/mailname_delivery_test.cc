#include "mail/lib/home/mailname_delivery.h"

#include "support/call_faults.h"
#include "support/delivery_file_test.h"
#include "support/report.h"

#include <gtest/gtest.h>

#include <cstring>
#include <filesystem>
#include <functional>
#include <vector>

#include <sys/stat.h>
#include <sys/syscall.h>

namespace {

constexpr char delivery[] = "| /usr/bin/deliverquota ./Maildir\n";

class MailnameDeliveryOnHost : public DeliveryFileTest
{
protected:
    int add() const { return dotqmail_add_delivery(file.c_str()); }
    int remove() const { return dotqmail_remove_delivery(file.c_str()); }
    int reset() const { return dotqmail_reset(file.c_str()); }

    // All kinds of changes.
    std::vector<std::function<int()>> changes() const
    {
        return {[this] { return add(); }, [this] { return remove(); }, [this] { return reset(); }};
    }

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

TEST_F(MailnameDeliveryOnHost, AppendsDeliveryAndKeepsTheResetsLine)
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

TEST_F(MailnameDeliveryOnHost, AddsNoLineThatMakesTheFileTooLarge)
{
    std::string const largest = std::string((1 << 20) - strlen(delivery) - 1, '#') + "\n";
    writeFile(file, largest);
    EXPECT_EQ(add(), 0);
    EXPECT_EQ(left(), largest + delivery);
    writeFile(file, '#' + largest);
    EXPECT_NE(failureOf([&] { return add(); }).find("File too large"), std::string::npos);
    EXPECT_EQ(readFile(file), '#' + largest);
}

TEST_F(MailnameDeliveryOnHost, ReportsAFailedOwnerAndKeepsTheLine)
{
    EXPECT_EQ(failureOf([&] {
                  failSystemCall(SYS_fchownat, EPERM);
                  return add();
              }),
              withErrno("ERROR: unable to chown " + file + ": Operation not permitted\n", EPERM));
    EXPECT_EQ(readFile(file), delivery);
}

TEST_F(MailnameDeliveryOnHost, ReportsAMissingOwner)
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

TEST_F(MailnameDeliveryOnHost, ResetsToAPrivateFileEvenWhenChmodFails)
{
    CallFailure const failing("fchownat", EPERM);
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

TEST_F(MailnameDeliveryOnHost, LeavesNothingWhenWritingANewFileFails)
{
    ASSERT_EQ(system(("mount -t tmpfs -o size=4096 tmpfs " + home).c_str()), 0);
    writeFile(home + "/full", std::string(4096, 'x'));
    EXPECT_EQ(failureOf([&] { return reset(); }),
              withErrno("Unable to write to " + file + ": No space left on device", ENOSPC));
    EXPECT_EQ(rightsBelow(home).size(), 1U);
    EXPECT_EQ(system(("umount " + home).c_str()), 0);
}

TEST_F(MailnameDeliveryOnHost, KeepsAFileThatWasThereWhenWritingFails)
{
    ASSERT_EQ(system(("mount -t tmpfs -o size=8192 tmpfs " + home).c_str()), 0);
    writeFile(file, "&a@example.net\n");
    std::string const before = rightsOf(file);
    writeFile(home + "/full", std::string(4096, 'x'));
    EXPECT_EQ(failureOf([&] { return reset(); }),
              withErrno("Unable to write to " + file + ": No space left on device", ENOSPC));
    EXPECT_EQ(readFile(file), "&a@example.net\n");
    EXPECT_EQ(rightsOf(file), before);
    EXPECT_EQ(rightsBelow(home).size(), 2U);
    EXPECT_EQ(system(("umount " + home).c_str()), 0);
}

TEST_F(MailnameDeliveryOnHost, KeepsAFileThatWasThereWhenReplacingFails)
{
    writeFile(file, "&a@example.net\n");
    for (long const call : {SYS_fchownat, SYS_renameat}) {
        EXPECT_EQ(failureOf([&] {
                      failSystemCall(call, EPERM);
                      return reset();
                  }),
                  withErrno("Unable to write to " + file + ": Operation not permitted", EPERM));
        EXPECT_EQ(readFile(file), "&a@example.net\n");
        EXPECT_EQ(rightsBelow(home).size(), 1U);
    }
}

TEST_F(MailnameDeliveryOnHost, TellsWhyWritingFailedThoughRemovalFailsToo)
{
    ASSERT_EQ(system(("mount -t tmpfs -o size=4096 tmpfs " + home).c_str()), 0);
    writeFile(home + "/full", std::string(4096, 'x'));
    EXPECT_EQ(failureOf([&] {
                  failSystemCall(SYS_unlinkat, EPERM);
                  return reset();
              }),
              withErrno("Unable to write to " + file + ": No space left on device", ENOSPC));
    EXPECT_EQ(rightsOf(file), "missing");
    EXPECT_EQ(system(("umount " + home).c_str()), 0);
}

// ------------------------------------------------------------------------ among strangers

TEST_F(MailnameDeliveryOnHost, FollowsNoLinkAtAnyPlaceOnTheWay)
{
    TempDir const elsewhere;
    writeFile(elsewhere / ".qmail", "precious\n");
    std::string const before = rightsOf(elsewhere / ".qmail");
    std::filesystem::create_directories(elsewhere / "info");
    std::filesystem::rename(elsewhere / ".qmail", elsewhere / "info/.qmail");
    std::string const others = elsewhere / "info/.qmail";

    auto const expectRefusal = [&] {
        for (auto const& change : changes())
            EXPECT_NE(failureOf(change).find("Too many levels of symbolic links"),
                      std::string::npos);
        EXPECT_EQ(rightsOf(others), before);
        EXPECT_EQ(readFile(others), "precious\n");
        EXPECT_EQ(rightsBelow(elsewhere.path()).size(), 2U);
    };
    std::filesystem::create_symlink(others, file);
    expectRefusal();
    std::filesystem::remove_all(home);
    std::filesystem::create_symlink(elsewhere / "info", home);
    expectRefusal();
    std::filesystem::remove_all(domain);
    std::filesystem::create_symlink(elsewhere.path(), domain);
    expectRefusal();
    std::filesystem::remove(domain);
}

TEST_F(MailnameDeliveryOnHost, ChangesNoFileThatHasFurtherNames)
{
    std::string const other = domain + "/precious";
    writeFile(other, "precious\n");
    std::string const before = rightsOf(other);
    std::filesystem::create_hard_link(other, file);
    for (auto const& change : changes())
        EXPECT_NE(failureOf(change).find("Too many links"), std::string::npos);
    EXPECT_EQ(rightsOf(other), before);
    EXPECT_EQ(readFile(other), "precious\n");
}

TEST_F(MailnameDeliveryOnHost, HoldsAtNoFifoAndNoHugeFile)
{
    ASSERT_EQ(mkfifo(file.c_str(), 0666), 0);
    for (auto const& change : changes())
        EXPECT_NE(failureOf(change).find("Invalid argument"), std::string::npos);
    std::filesystem::remove(file);
    writeFile(file, "");
    ASSERT_EQ(truncate(file.c_str(), off_t{8} << 40), 0);
    for (auto const& change : changes())
        EXPECT_NE(failureOf(change).find("File too large"), std::string::npos);
    std::filesystem::resize_file(file, (1 << 20) + 1);
    EXPECT_NE(failureOf([&] { return reset(); }).find("File too large"), std::string::npos);
    std::filesystem::resize_file(file, 1 << 20);
    EXPECT_EQ(reset(), 0);
}

TEST_F(MailnameDeliveryOnHost, WritesThroughNothingInTheTemporaryFilesPlace)
{
    std::string const precious = domain + "/precious";
    std::string const temporary = file + ".tmp";
    writeFile(precious, "precious\n");
    std::function<void()> const plants[] = {
        [&] { std::filesystem::create_symlink(precious, temporary); },
        [&] { ASSERT_EQ(mkfifo(temporary.c_str(), 0666), 0); },
        [&] { std::filesystem::create_hard_link(precious, temporary); },
    };
    for (auto const& plant : plants) {
        writeFile(file, "./Maildir/\n");
        plant();
        EXPECT_EQ(add(), 0);
        EXPECT_EQ(left(), delivery);
        EXPECT_EQ(rightsOf(temporary), "missing");
        EXPECT_EQ(readFile(precious), "precious\n");
    }
    std::filesystem::create_directory(temporary);
    EXPECT_NE(failureOf([&] { return remove(); }).find("Unable to open file " + temporary),
              std::string::npos);
}

TEST_F(MailnameDeliveryOnHost, GivesAwayNothingThatReplacesTheFile)
{
    TempDir const elsewhere;
    writeFile(elsewhere / "precious", "precious\n");
    std::string const before = rightsOf(elsewhere / "precious");
    writeFile(file, "./Maildir/\n");
    for (int number = 1; number <= 6; ++number) {
        auto const run = inChild([&] {
            BeforeCall const swap("fchownat", number, [&] {
                std::filesystem::remove(file);
                std::filesystem::create_symlink(elsewhere / "precious", file);
            });
            static_cast<void>(add());
            return 0;
        });
        EXPECT_EQ(run.status, 0);
        EXPECT_EQ(rightsOf(elsewhere / "precious"), before) << number;
        EXPECT_EQ(readFile(elsewhere / "precious"), "precious\n") << number;
        std::filesystem::remove(file);
    }
}

TEST_F(MailnameDeliveryOnHost, TakesNoSetIdBitOver)
{
    writeFile(file, "./Maildir/\n");
    ASSERT_EQ(chmod(file.c_str(), 06755), 0);
    // The mode of the temporary file right before it is renamed over the delivery file.
    mode_t mode = 07777;
    {
        BeforeCall const look("renameat", 1, [&] { mode = modeOf(file + ".tmp"); });
        EXPECT_EQ(remove(), 0);
    }
    EXPECT_EQ(mode, mode_t{0755});
    EXPECT_EQ(left(), "");
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
