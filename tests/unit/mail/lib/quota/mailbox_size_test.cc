#include "mail/lib/quota/mailbox_size.h"

#include "mail/lib/quota/get_dir_size.h"
#include "support/call_faults.h"
#include "support/mailbox_test.h"
#include "support/mailnames_root.h"
#include "support/report.h"

namespace {

using MailboxSizeOnHost = MailboxTest;

// The output of a call that must end the process with status 1.
std::string lastWords(std::function<sizequota_t()> const& call)
{
    auto const run = inChild([&] {
        static_cast<void>(call());
        return 99;
    });
    EXPECT_EQ(run.status, 1);
    EXPECT_EQ(run.out, run.err);
    return run.err;
}

} // namespace

TEST_F(MailboxSizeOnHost, IsThatOfTheMailAndTheAttachments)
{
    put("Maildir/cur/1,S=500", 3);
    EXPECT_EQ(get_mbox_size("info", "example.com", 0), 500);
    put("@attachments/file", 1000);
    EXPECT_EQ(get_mbox_size("info", "example.com", 0),
              500 + get_dir_size((home + "/@attachments").c_str(), 0));
}

TEST_F(MailboxSizeOnHost, TakesBlocksOnlyForTheAttachments)
{
    put("Maildir/cur/1,S=7", 3);
    put("@attachments/file", 5000);
    sizequota_t const blocks = get_dir_size((home + "/@attachments").c_str(), 1);
    EXPECT_NE(blocks, get_dir_size((home + "/@attachments").c_str(), 0));
    EXPECT_EQ(get_mbox_size("info", "example.com", 1), 7 + blocks);
}

TEST_F(MailboxSizeOnHost, TakesTheFileInsteadOfCounting)
{
    put("Maildir/cur/1,S=500", 3);
    writeFile(file, "0S,0C\n42 1\n");
    EXPECT_EQ(get_mbox_size("info", "example.com", 0), 42);
}

TEST_F(MailboxSizeOnHost, FindsTheDomainByItsAsciiForm)
{
    put("Maildir/cur/1,S=500", 3);
    std::string const other = "/var/qmail/mailnames/xn--mller-kva.example";
    std::filesystem::rename(domain, other);
    EXPECT_EQ(get_mbox_size("info", "m\xc3\xbcller.example", 0), 500);
    std::filesystem::rename(other, domain);
}

TEST_F(MailboxSizeOnHost, FindsTheMailboxBelowTheConfiguredRoot)
{
    put("Maildir/cur/1,S=500", 3);
    MailnamesRoot const other("/srv/mail");
    std::filesystem::rename(domain, "/srv/mail/example.com");
    EXPECT_EQ(get_mbox_size("info", "example.com", 0), 500);
    std::filesystem::rename("/srv/mail/example.com", domain);
}

TEST_F(MailboxSizeOnHost, EndsTheProcessWhenItCannotTell)
{
    EXPECT_EQ(lastWords([] { return get_mbox_size("none", "example.com", 0); }),
              withErrno("Unable to calculate Maildir++ size: No such file or directory", ENOENT));
    EXPECT_EQ(lastWords([] {
                  return get_mbox_size("info", ("\xc3\xa4" + std::string(64, 'x')).c_str(), 0);
              }),
              "idn_toascii() failed: Invalid length\n");
    for (size_t const length : {4080, 4062, 4049})
        EXPECT_EQ(lastWords([&] {
                      return get_mbox_size(std::string(length, 'x').c_str(), "example.com", 0);
                  }),
                  "user mailbox path is too long\n");
}
