#include "mail/lib/quota/maildirpp_quota.h"

#include "support/call_faults.h"
#include "support/mailbox_test.h"
#include "support/mailnames_root.h"
#include "support/path_faults.h"
#include "support/report.h"

namespace fs = std::filesystem;

namespace {

constexpr char warning[] = "WARNING: @attachments directory is big enough to disable delivery!\n";

class MaildirppQuotaOnHost : public MailboxTest
{
protected:
    static int store(sizequota_t quota) { return store_mbox_quota("example.com", "info", quota); }
};

} // namespace

TEST_F(MaildirppQuotaOnHost, WritesAsTheUserOfTheMailboxes)
{
    put("Maildir/cur/1,S=10", 0);
    EXPECT_EQ(reportOf(1, [] { return store(5000); }), "");
    EXPECT_EQ(readFile(file), "5000S,0C\n          10           1\n");
    EXPECT_EQ(rightsOf(file), "-rw-r--r-- popuser:popuser");
}

TEST_F(MaildirppQuotaOnHost, StoresNoQuotaAsZeroAndZeroAsOne)
{
    struct Stored
    {
        sizequota_t quota;
        char const* line;
    };
    for (Stored const& stored :
         {Stored{-1, "0S,0C"}, {-5000, "0S,0C"}, {0, "1S,0C"}, {1, "1S,0C"}, {2, "2S,0C"}}) {
        EXPECT_EQ(reportOf(1, [&] { return store(stored.quota); }), "");
        EXPECT_EQ(quotaOf("info"), stored.line) << stored.quota;
    }
}

TEST_F(MaildirppQuotaOnHost, TheRawFormStaysInTheMaildir)
{
    fs::current_path(home);
    EXPECT_EQ(store_maildirpp_quota_raw("Maildir", 0), 1);
    EXPECT_EQ(fs::current_path(), home + "/Maildir");
    EXPECT_EQ(quotaOf("info"), "1S,0C");
}

TEST_F(MaildirppQuotaOnHost, DeductsTheAttachments)
{
    put("@attachments/file", 1000);
    auto const taken = static_cast<sizequota_t>(fs::file_size(home + "/@attachments/file")) + [&] {
        struct stat info = {};
        lstat((home + "/@attachments").c_str(), &info);
        return info.st_size;
    }();
    EXPECT_EQ(reportOf(1, [&] { return store(taken + 50); }), "");
    EXPECT_EQ(quotaOf("info"), "50S,0C");
    EXPECT_EQ(reportOf(1, [&] { return store(taken); }), "");
    EXPECT_EQ(quotaOf("info"), "1S,0C");
    EXPECT_EQ(reportOf(1, [&] { return store(taken - 1); }), warning);
    EXPECT_EQ(quotaOf("info"), "1S,0C");
    EXPECT_EQ(reportOf(1, [] { return store(-1); }), "");
    EXPECT_EQ(quotaOf("info"), "0S,0C");
    EXPECT_EQ(reportOf(1, [] { return store(0); }), warning);
    EXPECT_EQ(quotaOf("info"), "1S,0C");
}

TEST_F(MaildirppQuotaOnHost, WarnsWithoutAnErrorFromBefore)
{
    put("@attachments/file", 1000);
    EXPECT_EQ(reportOf(1,
                       [] {
                           errno = EIO;
                           return store(1);
                       }),
              warning);
}

TEST_F(MaildirppQuotaOnHost, TakesAnyEntryOfThatNameForTheAttachments)
{
    put("@attachments", 1000);
    EXPECT_EQ(reportOf(1, [] { return store(1500); }), "");
    EXPECT_EQ(quotaOf("info"), "500S,0C");
    fs::remove(home + "/@attachments");
    fs::create_symlink("nowhere", home + "/@attachments");
    EXPECT_EQ(reportOf(1, [] { return store(1500); }), "");
    EXPECT_EQ(quotaOf("info"), "1493S,0C");
}

TEST_F(MaildirppQuotaOnHost, StaysInTheMailboxWhenTheAttachmentsCannotBeCounted)
{
    put("@attachments/file", 1000);
    auto const run = inChild([&] {
        // The first call checks whether there are attachments.
        CallFailure const failing("fstatat", EIO, 2);
        return store(5000) == 0 && errno == EIO && fs::current_path() == home ? 0 : 1;
    });
    EXPECT_EQ(run.status, 0);
    EXPECT_EQ(run.err, withErrno("unable to count attachments folder size", EIO));
    EXPECT_EQ(run.out, run.err);
    EXPECT_FALSE(fs::exists(file));
}

TEST_F(MaildirppQuotaOnHost, ReportsWhyAMailboxCannotBeEntered)
{
    EXPECT_EQ(reportOf(0,
                       [] {
                           CallFailure const failing("open", EMFILE);
                           return store(5000);
                       }),
              withErrno("unable to get current working directory", EMFILE));
    EXPECT_EQ(reportOf(0, [] { return store_mbox_quota("example.com", "none", 5000); }),
              withErrno("unable to change to mbox folder "
                        "/var/qmail/mailnames/example.com/none: No such file or directory",
                        ENOENT));
}

TEST_F(MaildirppQuotaOnHost, RefusesNamesThatMakeNoPath)
{
    std::string const label(64, 'x');
    EXPECT_EQ(reportOf(0,
                       [&] {
                           int const result =
                               store_mbox_quota(("\xc3\xa4" + label).c_str(), "info", 1);
                           return errno == EINVAL ? result : 1;
                       }),
              "idn_toascii(\xc3\xa4" + label + ") failed: Invalid length\n");
    EXPECT_EQ(reportOf(0,
                       [] {
                           int const result =
                               store_mbox_quota("example.com", std::string(4096, 'x').c_str(), 1);
                           return errno == ENAMETOOLONG ? result : 1;
                       }),
              "domain and/or user name too long to be stored on the filesystem\n");
}

TEST_F(MaildirppQuotaOnHost, EntersNoDirectoryInAHome)
{
    std::filesystem::create_directories(home + "/inner/Maildir/tmp");
    EXPECT_EQ(
        reportOf(0, [] { return store_mbox_quota("example.com", "info/inner", 1); }),
        withErrno("unable to change to mbox folder " + home + "/inner: Invalid argument", EINVAL));
    EXPECT_FALSE(std::filesystem::exists(home + "/inner/Maildir/maildirsize"));
}

TEST_F(MaildirppQuotaOnHost, FindsTheDomainByItsAsciiForm)
{
    fs::rename(domain, "/var/qmail/mailnames/xn--mller-kva.example");
    EXPECT_EQ(reportOf(1, [] { return store_mbox_quota("m\xc3\xbcller.example", "info", 70); }),
              "");
    fs::rename("/var/qmail/mailnames/xn--mller-kva.example", domain);
    EXPECT_EQ(quotaOf("info"), "70S,0C");
}

TEST_F(MaildirppQuotaOnHost, FindsTheMailboxBelowTheConfiguredRoot)
{
    MailnamesRoot const other("/srv/mail");
    fs::rename(domain, "/srv/mail/example.com");
    EXPECT_EQ(reportOf(1, [] { return store(70); }), "");
    fs::rename("/srv/mail/example.com", domain);
    EXPECT_EQ(quotaOf("info"), "70S,0C");
}

TEST_F(MaildirppQuotaOnHost, PassesAFailedWriteOn)
{
    fs::remove_all(home + "/Maildir");
    EXPECT_EQ(reportOf(0, [] { return store(5000) == 0 && errno == ENOENT ? 0 : 1; }), "");
}
