#include "mail/lib/quota/maildirpp_group_quota.h"

#include "lib/panel/dbconnect.h"
#include "support/mailbox_test.h"
#include "support/report.h"

#include <gmock/gmock.h>

using ::testing::Contains;
using ::testing::EndsWith;
using ::testing::StartsWith;

namespace {

constexpr char domain_name[] = "example.com";

class MaildirppGroupQuotaOnHost : public MailboxTest
{
protected:
    void SetUp() override
    {
        MailboxTest::SetUp();
        if (!HasFatalFailure())
            for (char const* const name : {"own", "none"})
                makeMailbox(name);
    }

    std::string quotas() const
    {
        return quotaOf("info") + " " + quotaOf("own") + " " + quotaOf("none");
    }
    void addMailnames()
    {
        addMailname("info", -1);
        addMailname("own", 9000);
        addMailname("none", -1);
    }
};

} // namespace

TEST_F(MaildirppGroupQuotaOnHost, TheDefaultIsForMailboxesWithoutTheirOwn)
{
    addDomain(domain_name);
    addMailnames();
    EXPECT_EQ(reportOf(1, [] { return store_default_mbox_quota(domain_name, 5000); }), "");
    EXPECT_EQ(quotas(), "5000S,0C  5000S,0C");
    EXPECT_EQ(reportOf(1, [] { return rm_default_mbox_quota(domain_name); }), "");
    EXPECT_EQ(quotas(), "0S,0C  0S,0C");
    EXPECT_EQ(reportOf(1, [] { return store_domain_quota(domain_name, 0); }), "");
    EXPECT_EQ(quotas(), "1S,0C  1S,0C");
    EXPECT_EQ(reportOf(1, [] { return rm_domain_quota(domain_name); }), "");
    EXPECT_EQ(quotas(), "0S,0C  0S,0C");
}

TEST_F(MaildirppGroupQuotaOnHost, ZeroOrBelowMinusOneIsAMailboxsOwnQuota)
{
    addDomain(domain_name);
    addMailname("info", 0);
    addMailname("none", -2);
    EXPECT_EQ(store_default_mbox_quota(domain_name, 5000), 1);
    EXPECT_EQ(quotas(), "  ");
}

TEST_F(MaildirppGroupQuotaOnHost, AQuotaThatIsNoNumberIsNone)
{
    addDomain(domain_name);
    addMailnames();
    spy.replace("SELECT m.mail_name, m.mbox_quota FROM mail m, domains d WHERE d.id = m.dom_id AND "
                "d.name='example.com' ",
                "SELECT 'info', 'much' UNION SELECT 'own', NULL UNION SELECT 'none', '5x'");
    EXPECT_EQ(store_default_mbox_quota(domain_name, 5000), 1);
    EXPECT_EQ(quotas(), "5000S,0C 5000S,0C ");
}

TEST_F(MaildirppGroupQuotaOnHost, AnUnknownDomainHasNoMailboxes)
{
    EXPECT_EQ(reportOf(1, [] { return store_default_mbox_quota("example.org", 5000); }), "");
}

TEST_F(MaildirppGroupQuotaOnHost, EndsAtTheFirstMailboxThatFails)
{
    addDomain(domain_name);
    addMailname("gone", -1);
    addMailname("info", -1);
    EXPECT_THAT(reportOf(0,
                         [] {
                             int const result = store_default_mbox_quota(domain_name, 5000);
                             return errno == ENOENT ? result : -1;
                         }),
                EndsWith(withErrno("unable to set default mbox quota for domain 'example.com' "
                                   "(processing 'gone')",
                                   ENOENT)));
    EXPECT_EQ(quotas(), "  ");
}

TEST_F(MaildirppGroupQuotaOnHost, ReportsAFailedConnection)
{
    unlink(panel_password_file);
    auto const expected =
        withErrno("Unable to open admin password file: No such file or directory", ENOENT) +
        withErrno("unable to connect to MySQL", ENOENT);
    EXPECT_EQ(reportOf(0, [] { return store_default_mbox_quota(domain_name, 1); }), expected);
    EXPECT_EQ(reportOf(0, [] { return rm_mbox_quota(domain_name, "info"); }), expected);
}

TEST_F(MaildirppGroupQuotaOnHost, ReportsAFailedQuery)
{
    WithoutTable const mail(panel, "mail");
    EXPECT_EQ(reportOf(0, [] { return store_default_mbox_quota(domain_name, 1); }),
              withErrno("Unable to query mailnames: Table 'orv.mail' doesn't exist", EIO));
}

TEST_F(MaildirppGroupQuotaOnHost, ReportsMailnamesThatCannotBeHad)
{
    // Two results are those of the connection's set-up.
    EXPECT_THAT(reportOf(0,
                         [this] {
                             spy.fault("store_result", 3);
                             return store_default_mbox_quota(domain_name, 1);
                         }),
                StartsWith("Unable to query mailnames: "));
}

TEST_F(MaildirppGroupQuotaOnHost, ReportsAFailedQueryForTheDomain)
{
    WithoutTable const domains(panel, "domains");
    EXPECT_EQ(reportOf(0, [] { return rm_mbox_quota(domain_name, "info"); }),
              withErrno("Unable to query domain ID: Table 'orv.domains' doesn't exist", EIO));
}

TEST_F(MaildirppGroupQuotaOnHost, ReportsAResultThatCannotBeHad)
{
    // Two results are those of the connection's set-up.
    EXPECT_THAT(reportOf(0,
                         [this] {
                             spy.fault("store_result", 3);
                             return rm_mbox_quota(domain_name, "info");
                         }),
                StartsWith("Unable to get domain ID query result: "));
}

TEST_F(MaildirppGroupQuotaOnHost, RefusesADomainTooLongForTheQuery)
{
    std::string name = "x";
    while (name.size() < 4096)
        name += ".xxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxx";
    EXPECT_THAT(reportOf(0, [&] { return store_default_mbox_quota(name.c_str(), 1); }),
                StartsWith("domain name is too long to fit query buffer\n"));
}

TEST_F(MaildirppGroupQuotaOnHost, AMailboxGoesBackToItsDomainsLimit)
{
    addDomain(domain_name, "7000");
    EXPECT_EQ(reportOf(1, [] { return rm_mbox_quota(domain_name, "info"); }), "");
    EXPECT_EQ(quotas(), "7000S,0C  ");
}

TEST_F(MaildirppGroupQuotaOnHost, AMailboxOfADomainWithoutALimitHasNone)
{
    addDomain(domain_name);
    EXPECT_EQ(reportOf(1, [] { return rm_mbox_quota(domain_name, "info"); }), "");
    EXPECT_EQ(quotas(), "0S,0C  ");
}

TEST_F(MaildirppGroupQuotaOnHost, ReportsADomainThatThereIsNot)
{
    EXPECT_EQ(reportOf(0, [] { return rm_mbox_quota("m\xc3\xbcller.example", "info"); }),
              withErrno("No such domain m\xc3\xbcller.example", ENODATA));
    EXPECT_EQ(quotas(), "  ");
}

TEST_F(MaildirppGroupQuotaOnHost, AsksByTheEscapedAsciiForm)
{
    EXPECT_EQ(store_default_mbox_quota("m\xc3\xbcller.example", 1), 1);
    EXPECT_EQ(store_default_mbox_quota("o'neill", 1), 1);
    EXPECT_THAT(spy.statements, Contains(EndsWith("AND d.name='xn--mller-kva.example' ")));
    EXPECT_THAT(spy.statements, Contains(EndsWith("AND d.name='o\\'neill' ")));
}

TEST_F(MaildirppGroupQuotaOnHost, GivesUpOnADomainWithoutAnAsciiForm)
{
    std::string const name = "\xc3\xa4" + std::string(64, 'x');
    auto const refused = [](int result) { return result == 0 && errno == EINVAL ? 0 : 1; };
    EXPECT_EQ(reportOf(0, [&] { return refused(store_default_mbox_quota(name.c_str(), 1)); }), "");
    EXPECT_EQ(reportOf(0, [&] { return refused(rm_mbox_quota(name.c_str(), "info")); }), "");
}
