#include "mail/lib/accounts/mail_auth_domains.h"

#include "mail/lib/accounts/mail_auth_connection.h"
#include "support/auth_database_test.h"
#include "support/child_run.h"
#include "support/odd_names.h"

using ::testing::ElementsAre;
using ::testing::IsEmpty;
using ::testing::Pair;
using ::testing::SizeIs;

namespace {

class MailAuthDomains : public AuthDatabaseTest
{
protected:
    long long idOf(char const* domain, MailAuthFlagsT flags)
    {
        MailAuthConnection db;
        EXPECT_EQ(db.openForWriting(), 0);
        long long const id = getDomainId(domain, db, flags);
        EXPECT_TRUE(db.isOpen());
        EXPECT_EQ(db.finish(), 0);
        return id;
    }
};

} // namespace

TEST_F(MailAuthDomains, DisablesAndEnablesADomain)
{
    sql("INSERT INTO domains (name) VALUES ('a.com'), ('b.com')");
    EXPECT_EQ(mailAuthDisableDomain("a.com"), 0);
    EXPECT_THAT(domains(), ElementsAre("a.com|1", "b.com|0"));
    EXPECT_EQ(mailAuthEnableDomain("a.com"), 0);
    EXPECT_THAT(domains(), ElementsAre("a.com|0", "b.com|0"));
    EXPECT_EQ(setDomainStatus("b.com", 7), 0);
    EXPECT_THAT(domains(), ElementsAre("a.com|0", "b.com|7"));
    EXPECT_THAT(reports(), IsEmpty());
}

TEST_F(MailAuthDomains, TakesADomainThatDoesNotExistForASuccess)
{
    EXPECT_EQ(mailAuthDisableDomain("nowhere.com"), 0);
    EXPECT_EQ(mailAuthRenameDomain("nowhere.com", "new.com"), 0);
    EXPECT_EQ(mailAuthRemoveDomain("nowhere.com"), 0);
    EXPECT_THAT(domains(), IsEmpty());
    EXPECT_THAT(reports(), IsEmpty());
}

TEST_F(MailAuthDomains, RenamesADomainWithItsUsersAndStatus)
{
    sql("INSERT INTO domains (id, name, status) VALUES (1, 'old.com', 1);"
        "INSERT INTO users (name, userPassword, dom_id) VALUES ('joe', 'pw', 1)");
    EXPECT_EQ(mailAuthRenameDomain("old.com", "new.com"), 0);
    EXPECT_THAT(users(), ElementsAre("new.com|1|joe|pw|NULL|0"));
}

TEST_F(MailAuthDomains, RefusesToRenameADomainOntoAnother)
{
    sql("INSERT INTO domains (name) VALUES ('old.com'), ('new.com')");
    EXPECT_EQ(mailAuthRenameDomain("old.com", "new.com"), -1);
    EXPECT_THAT(reports(),
                ElementsAre(Pair(3, "Unable to execute the mail domain authorization name change "
                                    "query: UNIQUE constraint failed: domains.name")));
    EXPECT_THAT(domains(), ElementsAre("new.com|0", "old.com|0"));
}

TEST_F(MailAuthDomains, RemovesADomainWithAllItsUsersAndNoOthers)
{
    sql("INSERT INTO domains (id, name) VALUES (1, 'a.com'), (2, 'b.com');"
        "INSERT INTO users (name, userPassword, dom_id) VALUES ('joe', 'pw', 1), ('ann', 'pw', 1),"
        " ('joe', 'pw', 2)");
    EXPECT_EQ(mailAuthRemoveDomain("a.com"), 0);
    EXPECT_THAT(domains(), ElementsAre("b.com|0"));
    EXPECT_THAT(sql("SELECT name, dom_id FROM users"), ElementsAre("joe|2"));
}

TEST_F(MailAuthDomains, KeepsNamesByteByByte)
{
    for (std::string const& name : oddNames()) {
        std::string const renamed = name + "x";
        EXPECT_GT(idOf(name.c_str(), 0), 0) << name;
        EXPECT_EQ(mailAuthDisableDomain(name.c_str()), 0);
        EXPECT_THAT(domains(), ElementsAre(name + "|1"));
        EXPECT_EQ(mailAuthRenameDomain(name.c_str(), renamed.c_str()), 0);
        EXPECT_THAT(domains(), ElementsAre(renamed + "|1"));
        EXPECT_EQ(mailAuthRemoveDomain(renamed.c_str()), 0);
        EXPECT_THAT(domains(), IsEmpty());
    }
    EXPECT_THAT(reports(), IsEmpty());
}

TEST_F(MailAuthDomains, GivesTheIdOfAKnownDomainWhateverTheFlags)
{
    sql("INSERT INTO domains (id, name, status) VALUES (7, 'a.com', 1), (5000000000, 'b.com', 0), "
        "(0, 'zero.com', 0)");
    for (MailAuthFlagsT const flags : {0, 4, 8, 15}) {
        EXPECT_EQ(idOf("zero.com", flags), 0);
        EXPECT_EQ(idOf("a.com", flags), 7);
        EXPECT_EQ(idOf("b.com", flags), 5000000000);
    }
    EXPECT_THAT(domains(), ElementsAre("a.com|1", "b.com|0", "zero.com|0"));
}

TEST_F(MailAuthDomains, RegistersAnUnknownDomainAsDisabledWithAnyFlag)
{
    EXPECT_EQ(idOf("plain.com", 0), 1);
    EXPECT_EQ(idOf("crypted.com", MAIL_AUTH_CRYPTED), 2);
    EXPECT_EQ(idOf("disabled.com", MAIL_DOMAIN_AUTH_DISABLED), 3);
    EXPECT_THAT(domains(), ElementsAre("crypted.com|1", "disabled.com|1", "plain.com|0"));
}

TEST_F(MailAuthDomains, NeitherRegistersNorReportsWhenNothingIsToChange)
{
    EXPECT_EQ(idOf("a.com", MAIL_AUTH_DO_NOT_CHANGE), -1);
    EXPECT_EQ(idOf("a.com", MAIL_AUTH_DO_NOT_CHANGE | MAIL_DOMAIN_AUTH_DISABLED), -1);
    EXPECT_THAT(domains(), IsEmpty());
    EXPECT_THAT(reports(), IsEmpty());
}

TEST_F(MailAuthDomains, CloseTheConnectionOnlyWhenPrepareOrBindFails)
{
    struct Row
    {
        char const* call;
        int nth;
        bool open;
        std::string report;
    };
    char const select[] = "SELECT id FROM domains WHERE name=?";
    char const insert[] = "INSERT INTO domains (name, status) VALUES(?, ?)";
    std::string const selection = "Unable to execute the domain selection query";
    std::string const registration =
        "Unable to execute the mail domain authentication registration query";
    for (Row const& row : {
             Row{"prepare_v2", 1, false, notPrepared(select, not_run)},
             Row{"prepare_v2", 2, false, notPrepared(insert, not_run)},
             Row{"bind_text", 1, false, notBound("domain name 'a.com' to", select)},
             Row{"bind_text", 2, false, notBound("domain name 'a.com' to", insert)},
             Row{"bind_int64", 1, false, notBound("status '1' for domain 'a.com' to", insert)},
             Row{"step", 1, true, selection + not_run},
             Row{"step", 2, true, registration + not_run},
         }) {
        MailAuthConnection db;
        ASSERT_EQ(db.openForWriting(), 0);
        spy.forget();
        LogRecorder::reports().clear();
        spy.fault(row.call, row.nth);
        EXPECT_EQ(getDomainId("a.com", db, 4), -1);
        EXPECT_THAT(reports(), ElementsAre(Pair(3, row.report)));
        EXPECT_EQ(db.isOpen(), row.open) << row.report;
        EXPECT_EQ(spy.open.size(), row.open ? 1U : 0U);
        EXPECT_EQ(db.finish(), 0);
    }
    EXPECT_THAT(domains(), IsEmpty());
}

TEST_F(MailAuthDomains, ReportEachFailureToSetTheStatus)
{
    char const query[] = "UPDATE domains SET status=? WHERE name=?";
    auto const disable = [] { return mailAuthDisableDomain("a.com"); };
    expectFailure(disable, "prepare_v2", 1, -1, {notPrepared(query, not_run)});
    expectFailure(disable, "bind_int64", 1, -1, {notBound("status 1 to ", query)});
    expectFailure(disable, "bind_text", 1, -1, {notBound("domain name 'a.com' to ", query)});
    expectFailure(disable, "step", 1, -1,
                  {"Unable to execute the mail domain authorization status change query: not an "
                   "error"});
}

TEST_F(MailAuthDomains, ReportEachFailureToRename)
{
    char const query[] = "UPDATE domains SET name=? WHERE name=?";
    auto const rename = [] { return mailAuthRenameDomain("a.com", "b.com"); };
    expectFailure(rename, "prepare_v2", 1, -1, {notPrepared(query, not_run)});
    expectFailure(rename, "bind_text", 1, -1, {notBound("new domain name 'b.com' to", query)});
    expectFailure(rename, "bind_text", 2, -1, {notBound("old domain name 'a.com' to", query)});
    expectFailure(rename, "step", 1, -1,
                  {"Unable to execute the mail domain authorization name change query: not an "
                   "error"});
}

TEST_F(MailAuthDomains, ReportEachFailureToRemove)
{
    char const query[] = "DELETE FROM domains WHERE name=?";
    auto const remove = [] { return mailAuthRemoveDomain("a.com"); };
    expectFailure(remove, "prepare_v2", 1, -1, {notPrepared(query, not_run)});
    expectFailure(remove, "bind_text", 1, -1, {notBound("domain name 'a.com' to", query)});
    expectFailure(remove, "step", 1, -1,
                  {"Unable to execute the domain mail authorization removal query: not an error"});
}

TEST_F(MailAuthDomains, FailWhenTheDatabaseCannotBeOpened)
{
    std::string const nowhere = directory / "no/passwd.db";
    mailAuthDBSetPath(nowhere.c_str());
    EXPECT_EQ(setDomainStatus("a.com", 0), -1);
    EXPECT_EQ(mailAuthRenameDomain("a.com", "b.com"), -1);
    EXPECT_EQ(mailAuthRemoveDomain("a.com"), -1);
    Report const report = {3,
                           "Unable to open database " + nowhere + ": unable to open database file"};
    EXPECT_THAT(reports(), ElementsAre(report, report, report));
}

TEST_F(MailAuthDomains, EndWithoutAReportWhenTheWaitIsRefused)
{
    for (char const* const call : {"prepare_v2", "step", "close"}) {
        spy.forget();
        spy.fault(call, 1, SQLITE_BUSY, 9);
        spy.fault("nanosleep", 1);
        EXPECT_EQ(mailAuthDisableDomain("a.com"), -1);
        EXPECT_EQ(spy.calls.back(), "nanosleep") << call;
        EXPECT_THAT(spy.open, SizeIs(1)) << call;
        spy.forget();
        spy.closeAbandoned();
    }
    EXPECT_THAT(reports(), IsEmpty());
}

TEST_F(MailAuthDomains, SayWhatTheDatabaseSaysOnBothStreams)
{
    mailAuthDBSetPath("/");
    orvek_log = _orvek_utility_log;
    orvek_logv = _orvek_utility_logv;
    ChildRun const run = inChild([] { return mailAuthRemoveDomain("a.com") == -1 ? 3 : 4; });
    EXPECT_EQ(run.status, 3);
    EXPECT_EQ(run.err, "Unable to open database /: unable to open database file\n");
    EXPECT_EQ(run.out, run.err);
}
