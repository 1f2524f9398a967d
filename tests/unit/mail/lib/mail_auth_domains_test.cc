#include "mail/lib/mail_auth_domains.h"

#include "mail/lib/mail_auth_connection.h"
#include "support/auth_database_test.h"
#include "support/child_run.h"
#include "support/odd_names.h"

#include <functional>

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

    SqliteSpy& spy = sqliteSpy();
};

// An operation, the call of it that fails, and what is reported then.
struct Failure
{
    std::function<int()> operation;
    char const* call;
    int nth;
    std::string report;
};

constexpr char no_place[] = ": column index out of range";
constexpr char not_run[] = ": not an error";

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
    sql("INSERT INTO domains (id, name, status) VALUES (7, 'a.com', 1), (5000000000, 'b.com', 0)");
    for (MailAuthFlagsT const flags : {0, 4, 8, 15}) {
        EXPECT_EQ(idOf("a.com", flags), 7);
        EXPECT_EQ(idOf("b.com", flags), 5000000000);
    }
    EXPECT_THAT(domains(), ElementsAre("a.com|1", "b.com|0"));
}

TEST_F(MailAuthDomains, RegistersAnUnknownDomainAsDisabledWhenAnyFlagIsSet)
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

TEST_F(MailAuthDomains, CloseTheCallersConnectionOnlyWhenAPrepareOrBindFails)
{
    struct Row
    {
        char const* call;
        int nth;
        bool open;
        std::string report;
    };
    std::string const select = "SELECT id FROM domains WHERE name=?";
    std::string const insert = "INSERT INTO domains (name, status) VALUES(?, ?)";
    std::string const prepare = "Unable to prepare SQL statement for query '";
    std::string const name = "Unable to bind parameter domain name 'a.com' to SQL statement for "
                             "query '";
    for (Row const& row : {
             Row{"prepare_v2", 1, false, prepare + select + "'" + not_run},
             Row{"prepare_v2", 2, false, prepare + insert + "'" + not_run},
             Row{"bind_text", 1, false, name + select + "'" + no_place},
             Row{"bind_text", 2, false, name + insert + "'" + no_place},
             Row{"bind_int64", 1, false,
                 "Unable to bind parameter status '1' for domain 'a.com' to SQL statement for "
                 "query '" +
                     insert + "'" + no_place},
             Row{"step", 1, true,
                 std::string("Unable to execute the domain selection query") + not_run},
             Row{"step", 2, true,
                 std::string("Unable to execute the mail domain authentication registration "
                             "query") +
                     not_run},
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

TEST_F(MailAuthDomains, ReportEachFailureAndLeaveNothingOpen)
{
    std::string const status = "UPDATE domains SET status=? WHERE name=?";
    std::string const rename = "UPDATE domains SET name=? WHERE name=?";
    std::string const remove = "DELETE FROM domains WHERE name=?";
    std::string const prepare = "Unable to prepare SQL statement for query '";
    std::string const bind = "Unable to bind parameter ";
    auto const disable = [] { return mailAuthDisableDomain("a.com"); };
    auto const change = [] { return mailAuthRenameDomain("a.com", "b.com"); };
    auto const drop = [] { return mailAuthRemoveDomain("a.com"); };
    for (Failure const& failure : {
             Failure{disable, "prepare_v2", 1, prepare + status + "'" + not_run},
             Failure{disable, "bind_int64", 1,
                     bind + "status 1 to  SQL statement for query '" + status + "'" + no_place},
             Failure{disable, "bind_text", 1,
                     bind + "domain name 'a.com' to  SQL statement for query '" + status + "'" +
                         no_place},
             Failure{disable, "step", 1,
                     std::string("Unable to execute the mail domain authorization status change "
                                 "query") +
                         not_run},
             Failure{change, "prepare_v2", 1, prepare + rename + "'" + not_run},
             Failure{change, "bind_text", 1,
                     bind + "new domain name 'b.com' to SQL statement for query '" + rename + "'" +
                         no_place},
             Failure{change, "bind_text", 2,
                     bind + "old domain name 'a.com' to SQL statement for query '" + rename + "'" +
                         no_place},
             Failure{change, "step", 1,
                     std::string("Unable to execute the mail domain authorization name change "
                                 "query") +
                         not_run},
             Failure{drop, "prepare_v2", 1, prepare + remove + "'" + not_run},
             Failure{drop, "bind_text", 1,
                     bind + "domain name 'a.com' to SQL statement for query '" + remove + "'" +
                         no_place},
             Failure{drop, "step", 1,
                     std::string("Unable to execute the domain mail authorization removal "
                                 "query") +
                         not_run},
         }) {
        spy.forget();
        LogRecorder::reports().clear();
        spy.fault(failure.call, failure.nth);
        EXPECT_EQ(failure.operation(), -1);
        EXPECT_THAT(reports(), ElementsAre(Pair(3, failure.report)));
        EXPECT_THAT(spy.open, IsEmpty()) << failure.report;
    }
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
