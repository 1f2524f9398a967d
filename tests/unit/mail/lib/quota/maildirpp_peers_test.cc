// The mail server's own programs and this code: each side enforces and counts what the other
// writes.

#include "mail/lib/quota/maildirpp_quota.h"
#include "mail/lib/quota/maildirpp_usage.h"
#include "support/mailbox_test.h"

#include <gmock/gmock.h>

#include <utility>

#include <sys/wait.h>

using ::testing::HasSubstr;
using ::testing::StartsWith;

namespace {

constexpr int refused = 77;

class MaildirppPeersOnHost : public MailboxTest
{
protected:
    using Usage = std::pair<sizequota_t, fcount_t>;

    void store(sizequota_t quota) { ASSERT_EQ(store_mbox_quota("example.com", "info", quota), 1); }

    // Runs a command in the mailbox as its user.
    int asUser(std::string const& command) const
    {
        int const status =
            system(("cd " + home + " && setpriv --reuid popuser --regid popuser --clear-groups " +
                    command + " 2>/dev/null")
                       .c_str());
        return WIFEXITED(status) ? WEXITSTATUS(status) : -1;
    }
    // Delivers a letter of that many bytes.
    int deliver(size_t size) const
    {
        writeFile("/tmp/letter", "Subject: x\n\n" + std::string(size - 12, 'x'));
        return asUser("/usr/bin/deliverquota ./Maildir </tmp/letter");
    }
    // The IMAP server's answer about the quota of the inbox.
    std::string imapQuota() const
    {
        writeFile("/tmp/commands", "a GETQUOTAROOT INBOX\r\nb LOGOUT\r\n");
        EXPECT_EQ(asUser("env AUTHENTICATED=info MAILDIR=Maildir 'IMAP_CAPABILITY=IMAP4rev1 QUOTA' "
                         "/usr/bin/imapd Maildir </tmp/commands >/tmp/reply"),
                  0);
        std::string const reply = readFile("/tmp/reply");
        size_t const line = reply.find("* QUOTA ");
        return line == std::string::npos ? "" : reply.substr(line, reply.find('\r', line) - line);
    }
    Usage usage() const
    {
        Usage found = {-1, 0};
        EXPECT_EQ(get_maildirpp_usage((home + "/Maildir").c_str(), &found.first, &found.second), 1);
        return found;
    }
};

} // namespace

TEST_F(MaildirppPeersOnHost, DeliveryStopsAtTheQuota)
{
    store(5000);
    EXPECT_EQ(deliver(2000), 0);
    EXPECT_EQ(deliver(2000), 0);
    EXPECT_EQ(deliver(2000), refused);
    EXPECT_EQ(usage(), Usage(4000, 2));
}

TEST_F(MaildirppPeersOnHost, DeliveryStopsAtAQuotaOfZero)
{
    store(0);
    EXPECT_EQ(deliver(100), refused);
    EXPECT_EQ(usage(), Usage(0, 0));
}

TEST_F(MaildirppPeersOnHost, DeliveryHasNoLimitWithoutAQuota)
{
    store(-1);
    EXPECT_EQ(deliver(300000), 0);
    EXPECT_EQ(usage(), Usage(300000, 1));
}

TEST_F(MaildirppPeersOnHost, ADeliveryCountsByFileAndByName)
{
    store(100000);
    EXPECT_EQ(deliver(2000), 0);
    EXPECT_THAT(readFile(file), StartsWith("100000S,0C\n           0           0\n"));
    EXPECT_EQ(usage(), Usage(2000, 1));
    unlink(file.c_str());
    EXPECT_EQ(usage(), Usage(2000, 1));
    EXPECT_EQ(deliver(500), 0);
    store(100000);
    EXPECT_EQ(readFile(file), "100000S,0C\n        2500           2\n");
    EXPECT_EQ(deliver(500), 0);
    EXPECT_EQ(usage(), Usage(3000, 3));
}

TEST_F(MaildirppPeersOnHost, TheImapServerTellsTheQuotaAndTheUsage)
{
    put("Maildir/cur/1,S=3072:2,S", 3072);
    store(10240);
    EXPECT_EQ(imapQuota(), "* QUOTA \"ROOT\" (STORAGE 3 10)");
    store(-1);
    EXPECT_THAT(imapQuota(), ::testing::Not(HasSubstr("STORAGE")));
}

TEST_F(MaildirppPeersOnHost, TheServersOwnQuotaFileIsRead)
{
    put("Maildir/cur/1,S=3072:2,S", 3072);
    ASSERT_EQ(asUser("/usr/bin/maildirmake -q 5000S ./Maildir"), 0);
    EXPECT_EQ(usage(), Usage(3072, 1));
    EXPECT_EQ(deliver(2000), refused);
    EXPECT_EQ(usage(), Usage(3072, 1));
}
