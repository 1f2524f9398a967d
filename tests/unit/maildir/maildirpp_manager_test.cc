#include "maildir/maildirpp_manager.h"

#include "support/child_run.h"
#include "support/host_test.h"
#include "support/mailnames_root.h"
#include "support/rights.h"
#include "support/syscall_faults.h"
#include "support/temp_dir.h"
#include "util/errors.h"

#include <cerrno>
#include <filesystem>
#include <functional>
#include <string>

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

using orvek::mail::FSError;
using orvek::mail::MaildirPPManager;

namespace fs = std::filesystem;

namespace {

constexpr char warning[] = "WARNING: @attachments directory is big enough to disable delivery!\n";
constexpr char home[] = "/var/qmail/mailnames/example.com/info";
constexpr char file[] = "/var/qmail/mailnames/example.com/info/Maildir/maildirsize";

class MaildirPPManagerOnHost : public HostTest
{
protected:
    void SetUp() override
    {
        HostTest::SetUp();
        if (HasFatalFailure())
            return;
        MaildirPPManager::getInstance().createDomainRoot("example.com");
        MaildirPPManager::getInstance().createMailnameHome("example.com", "info");
        empty = static_cast<long long>(sizeOfAttachments());
    }
    void TearDown() override
    {
        if (!HasFatalFailure())
            fs::remove_all("/var/qmail/mailnames/example.com");
    }

    static off_t sizeOfAttachments()
    {
        struct stat info = {};
        lstat((std::string(home) + "/@attachments").c_str(), &info);
        return info.st_size;
    }

    static void set(long long size)
    {
        MaildirPPManager::getInstance().setMailboxQuota("info", "example.com", size);
    }

    // The standard error of setting a quota. Standard output must be empty.
    static std::string printedBySetting(long long size)
    {
        auto const run = inChild([&] {
            auto const before = fs::current_path();
            set(size);
            return fs::current_path() == before ? 0 : 1;
        });
        EXPECT_EQ(run.status, 0);
        EXPECT_EQ(run.out, "");
        return run.err;
    }

    static std::string quota()
    {
        std::string const text = readFile(file);
        return text.substr(0, text.find('\n'));
    }

    // The error that an operation raises: its words, its number and its path.
    static std::string raisedBy(std::function<void(MaildirPPManager&)> const& operation)
    {
        std::string raised = "nothing";
        TempDir const dir;
        auto const run = inChild([&] {
            auto const before = fs::current_path();
            try {
                operation(MaildirPPManager::getInstance());
            } catch (FSError const& e) {
                std::string const what = e.what();
                raised = what.substr(0, what.find(':')) + " " + std::to_string(e.code().value()) +
                         " " + e.path1().string();
            }
            writeFile(dir / "raised", raised);
            return fs::current_path() == before ? 0 : 1;
        });
        EXPECT_EQ(run.status, 0);
        return readFile(dir / "raised");
    }

    long long empty = 0; // the size of an empty @attachments
};

} // namespace

TEST_F(MaildirPPManagerOnHost, WritesTheQuotaWithoutTheAttachments)
{
    EXPECT_EQ(printedBySetting(empty + 5000), "");
    EXPECT_EQ(readFile(file), "5000S,0C\n           0           0\n");
    EXPECT_EQ(rightsOf(file), "-rw-r--r-- popuser:popuser");
    writeFile(std::string(home) + "/@attachments/file", std::string(1000, 'x'));
    EXPECT_EQ(printedBySetting(sizeOfAttachments() + 1070), "");
    EXPECT_EQ(quota(), "70S,0C");
}

TEST_F(MaildirPPManagerOnHost, NegativeIsNoQuotaAndNothingLeftIsOneByte)
{
    EXPECT_EQ(printedBySetting(-1), "");
    EXPECT_EQ(quota(), "0S,0C");
    EXPECT_EQ(printedBySetting(empty), "");
    EXPECT_EQ(quota(), "1S,0C");
    fs::remove(std::string(home) + "/@attachments");
    EXPECT_EQ(printedBySetting(0), "");
    EXPECT_EQ(quota(), "1S,0C");
}

TEST_F(MaildirPPManagerOnHost, WarnsOnTheStandardErrorWhenTheAttachmentsTakeMore)
{
    writeFile(std::string(home) + "/@attachments/file", std::string(1000, 'x'));
    EXPECT_EQ(printedBySetting(999), warning);
    EXPECT_EQ(quota(), "1S,0C");
    fs::remove(file);
    EXPECT_EQ(printedBySetting(0), warning);
    EXPECT_EQ(quota(), "1S,0C");
}

TEST_F(MaildirPPManagerOnHost, DeductsNothingForALinkToADirectory)
{
    std::string const attachments = std::string(home) + "/@attachments";
    fs::remove(attachments);
    fs::create_directory_symlink("Maildir", attachments);
    EXPECT_EQ(printedBySetting(5007), "");
    EXPECT_EQ(quota(), "5007S,0C");
}

TEST_F(MaildirPPManagerOnHost, TakesADirectoryAloneForTheAttachments)
{
    std::string const attachments = std::string(home) + "/@attachments";
    fs::remove(attachments);
    writeFile(attachments, std::string(1000, 'x'));
    EXPECT_EQ(printedBySetting(5000), "");
    EXPECT_EQ(quota(), "5000S,0C");
    fs::remove(attachments);
    fs::create_symlink("nowhere", attachments);
    EXPECT_EQ(printedBySetting(5001), "");
    EXPECT_EQ(quota(), "5001S,0C");
}

TEST_F(MaildirPPManagerOnHost, WritesThroughNoLinkAndHoldsAtNoFifo)
{
    TempDir const elsewhere;
    std::string const maildir = std::string(home) + "/Maildir";
    fs::create_directory(elsewhere / "tmp");
    fs::remove_all(maildir);
    fs::create_symlink(elsewhere.path(), maildir);
    EXPECT_EQ(raisedBy([](auto& manager) { manager.setMailboxQuota("info", "example.com", 1); }),
              "create maildirsize 40 " + std::string(home));
    fs::remove(maildir);
    ASSERT_EQ(mkfifo(maildir.c_str(), 0666), 0);
    EXPECT_EQ(raisedBy([](auto& manager) { manager.setMailboxQuota("info", "example.com", 1); }),
              "create maildirsize 20 " + std::string(home));
    fs::remove_all(home);
    fs::create_symlink(elsewhere.path(), home);
    EXPECT_EQ(raisedBy([](auto& manager) { manager.setMailboxQuota("info", "example.com", 1); }),
              "chdir 40 " + std::string(home));
    EXPECT_EQ(rightsBelow(elsewhere.path()).size(), 1U);
}

TEST_F(MaildirPPManagerOnHost, RaisesTheStepThatFailed)
{
    EXPECT_EQ(raisedBy([](auto& manager) { manager.setMailboxQuota("none", "example.com", 1); }),
              "chdir 2 /var/qmail/mailnames/example.com/none");
    fs::remove_all(std::string(home) + "/Maildir");
    EXPECT_EQ(raisedBy([](auto& manager) { manager.setMailboxQuota("info", "example.com", 1); }),
              "create maildirsize 2 /var/qmail/mailnames/example.com/info");
    EXPECT_EQ(inChild([] {
                  failSystemCallWith(SYS_openat, 2, O_PATH | O_DIRECTORY | O_CLOEXEC, EACCES);
                  try {
                      set(1);
                  } catch (FSError const& e) {
                      return std::string(e.what()).rfind("getcwd", 0) == 0 &&
                                     e.code().value() == EACCES
                                 ? 0
                                 : 1;
                  }
                  return 2;
              }).status,
              0);
}

TEST_F(MaildirPPManagerOnHost, RaisesThatTheAttachmentsCannotBeCountedAndComesBack)
{
    EXPECT_EQ(raisedBy([](auto& manager) {
                  failSystemCall(SYS_getdents64, EIO);
                  manager.setMailboxQuota("info", "example.com", 5000);
              }),
              "unable to count attachments folder size 5 /var/qmail/mailnames/example.com/info");
    EXPECT_EQ(quota(), "");
}

TEST_F(MaildirPPManagerOnHost, RaisesWhatThePlainFunctionsFailAt)
{
    std::string const root = " 2 /var/qmail/mailnames/example.com";
    std::string const password = "/etc/orv/.orv.shadow";
    fs::rename(password, password + ".away");
    EXPECT_EQ(raisedBy([](auto& m) { m.removeMailboxQuota("info", "example.com"); }),
              "unable to remove quota" + root + "/info");
    EXPECT_EQ(raisedBy([](auto& m) { m.setDomainQuota("example.com", 1); }),
              "unable to store domain quota" + root);
    EXPECT_EQ(raisedBy([](auto& m) { m.removeDomainQuota("example.com"); }),
              "unable to remove domain quota" + root);
    EXPECT_EQ(raisedBy([](auto& m) { m.setDefaultMailboxQuota("example.com", 1); }),
              "unable to store default mbox quota" + root);
    EXPECT_EQ(raisedBy([](auto& m) { m.removeDefaultMailboxQuota("example.com"); }),
              "unable to remove default mbox quota" + root);
    MailnamesRoot const other("/srv/mail");
    EXPECT_EQ(raisedBy([](auto& m) { m.removeDomainQuota("example.com"); }),
              "unable to remove domain quota 2 /srv/mail/example.com");
    fs::rename(password + ".away", password);
}
