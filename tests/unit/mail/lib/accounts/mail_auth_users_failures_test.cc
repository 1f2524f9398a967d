#include "mail/lib/accounts/mail_auth_users.h"

#include "support/auth_database_test.h"
#include "support/auth_user_data.h"
#include "support/ordinary_user.h"

#include <functional>

#include <sys/stat.h>

using ::testing::ElementsAre;
using ::testing::IsEmpty;
using ::testing::Pair;
using ::testing::SizeIs;

namespace {

class MailAuthUsersFailures : public AuthDatabaseTest
{
};

constexpr char select_id[] = "SELECT id FROM domains WHERE name=?";

} // namespace

TEST_F(MailAuthUsersFailures, ReportEachFailureToSet)
{
    sql("INSERT INTO domains (name) VALUES ('a.com')");
    std::string const plain =
        "INSERT OR REPLACE INTO users (name, userPassword, status, dom_id) VALUES (?, ?, ?, ?)";
    std::string const crypted = "INSERT OR REPLACE INTO users (name, cmusaslsecretPLAIN, status, "
                                "dom_id) VALUES (?, ?, ?, ?)";
    std::string const no_domain = "No such domain 'a.com' in the mail authentication DB";
    for (bool const encrypted : {false, true}) {
        std::string const& query = encrypted ? crypted : plain;
        auto const set = [&] {
            return mailAuthSet("joe", "a.com", "pw", encrypted ? MAIL_AUTH_CRYPTED : 0);
        };
        expectFailure(set, "prepare_v2", 1, -1, {notPrepared(select_id, not_run), no_domain});
        expectFailure(set, "bind_text", 1, -1,
                      {notBound("domain name 'a.com' to", select_id), no_domain});
        expectFailure(
            set, "step", 1, -1,
            {std::string("Unable to execute the domain selection query") + not_run, no_domain});
        expectFailure(set, "prepare_v2", 2, -1, {notPrepared(query, not_run)});
        expectFailure(set, "bind_text", 2, -1, {notBound("mailname 'joe' to", query)});
        expectFailure(set, "bind_text", 3, -1,
                      {notBound("password for mail address 'joe@a.com' to", query)});
        expectFailure(set, "bind_int64", 1, -1,
                      {notBound("status for mail address 'joe@a.com' to ", query)});
        expectFailure(set, "bind_int64", 2, -1,
                      {notBound("domain ID for mail address 'joe@a.com' to ", query)});
        expectFailure(set, "step", 2, -1,
                      {std::string("Unable to execute the mail authorization registration "
                                   "query") +
                       not_run});
    }
    EXPECT_THAT(users(), IsEmpty());
}

TEST_F(MailAuthUsersFailures, ReportEachFailureToRemove)
{
    mailAuthSet("joe", "a.com", "pw", 0);
    std::string const query = "DELETE FROM users WHERE name=? AND dom_id=?";
    auto const remove = [] { return mailAuthRemove("joe", "a.com"); };
    expectFailure(remove, "prepare_v2", 2, -1, {notPrepared(query, not_run)});
    expectFailure(remove, "bind_text", 2, -1, {notBound("mailname 'joe' to ", query)});
    expectFailure(remove, "bind_int64", 1, -1,
                  {notBound("domain ID for mail address 'joe@a.com' to ", query)});
    expectFailure(
        remove, "step", 2, -1,
        {std::string("Unable to execute the mail authorization removal query") + not_run});
    EXPECT_THAT(users(), SizeIs(1));
}

TEST_F(MailAuthUsersFailures, TakeAFailedLookUpForNothingToRemove)
{
    mailAuthSet("joe", "a.com", "pw", 0);
    auto const remove = [] { return mailAuthRemove("joe", "a.com"); };
    expectFailure(remove, "prepare_v2", 1, 0, {notPrepared(select_id, not_run)});
    expectFailure(remove, "bind_text", 1, 0, {notBound("domain name 'a.com' to", select_id)});
    expectFailure(remove, "step", 1, 0,
                  {std::string("Unable to execute the domain selection query") + not_run});
    EXPECT_THAT(users(), SizeIs(1));
}

TEST_F(MailAuthUsersFailures, ReportEachFailureToRename)
{
    mailAuthSet("joe", "a.com", "pw", 0);
    std::string const query = "UPDATE users SET name=? WHERE name=? AND dom_id=?";
    auto const rename = [] { return mailAuthRename("joe", "jim", "a.com"); };
    expectFailure(
        rename, "prepare_v2", 1, -1,
        {notPrepared(select_id, not_run), "No such domain 'a.com' in the mail authentication DB"});
    expectFailure(rename, "prepare_v2", 2, -1, {notPrepared(query, not_run)});
    expectFailure(rename, "bind_text", 2, -1, {notBound("new mailname 'jim' to ", query)});
    expectFailure(rename, "bind_text", 3, -1, {notBound("old mailname 'joe' to ", query)});
    expectFailure(rename, "bind_int64", 1, -1,
                  {notBound("domain ID for mail address 'joe@a.com' to ", query)});
    expectFailure(
        rename, "step", 2, -1,
        {std::string("Unable to execute the mail authorization renaming query") + not_run});
    EXPECT_THAT(users(), ElementsAre("a.com|0|joe|pw|NULL|0"));
}

TEST_F(MailAuthUsersFailures, FailWhenTheDatabaseCannotBeOpened)
{
    std::string const nowhere = directory / "no/passwd.db";
    mailAuthDBSetPath(nowhere.c_str());
    EXPECT_EQ(mailAuthSet("joe", "a.com", "pw", 0), -1);
    EXPECT_EQ(mailAuthRemove("joe", "a.com"), -1);
    EXPECT_EQ(mailAuthRename("joe", "jim", "a.com"), -1);
    Report const report = {3,
                           "Unable to open database " + nowhere + ": unable to open database file"};
    EXPECT_THAT(reports(), ElementsAre(report, report, report));
}

TEST_F(MailAuthUsersFailures, ReportTheStatementWhenTheFileIsMissing)
{
    unlink(path.c_str());
    EXPECT_EQ(mailAuthSet("joe", "a.com", "pw", 0), -1);
    EXPECT_EQ(mailAuthRemove("joe", "a.com"), 0);
    Report const report = {3, notPrepared(select_id, ": no such table: domains")};
    EXPECT_THAT(reports(),
                ElementsAre(report, Pair(3, "No such domain 'a.com' in the mail authentication DB"),
                            report));
    EXPECT_EQ(readFile(path), "");
}

TEST_F(MailAuthUsersFailures, FailAtTheStepOfAReadOnlyFile)
{
    mailAuthSet("joe", "a.com", "pw", 0);
    chmod(directory.path().c_str(), 0755);
    chmod(path.c_str(), 0444);
    ChildRun const run = asOrdinaryUser([] {
        orvek_log = _orvek_utility_log;
        orvek_logv = _orvek_utility_logv;
        return mailAuthSet("joe", "a.com", "new", 0) == -1 &&
                       mailAuthSet("joe", "b.com", "new", 0) == -1 &&
                       mailAuthRemove("joe", "a.com") == -1 &&
                       mailAuthRename("joe", "jim", "a.com") == -1
                   ? 0
                   : 1;
    });
    EXPECT_EQ(run.status, 0);
    EXPECT_EQ(run.err,
              "Unable to execute the mail authorization registration query: attempt to write a "
              "readonly database\n"
              "Unable to execute the mail domain authentication registration query: attempt to "
              "write a readonly database\n"
              "No such domain 'b.com' in the mail authentication DB\n"
              "Unable to execute the mail authorization removal query: attempt to write a readonly "
              "database\n"
              "Unable to execute the mail authorization renaming query: attempt to write a "
              "readonly database\n");
    EXPECT_EQ(run.out, run.err);
    EXPECT_THAT(users(), ElementsAre("a.com|0|joe|pw|NULL|0"));
}

TEST_F(MailAuthUsersFailures, ReportAFileThatIsNoDatabase)
{
    writeFile(path, std::string(8192, 'x'));
    EXPECT_EQ(mailAuthSet("joe", "a.com", "pw", 0), -1);
    EXPECT_EQ(dataOf("joe", "a.com"), "-1");
    EXPECT_THAT(reports(),
                ElementsAre(Pair(3, notPrepared(select_id, ": file is not a database")),
                            Pair(3, "No such domain 'a.com' in the mail authentication DB"),
                            Pair(3, notPrepared("SELECT id, status FROM domains WHERE name=?",
                                                ": file is not a database"))));
    EXPECT_EQ(readFile(path), std::string(8192, 'x'));
}

TEST_F(MailAuthUsersFailures, EndOnTheSpotWhenTheWaitIsRefused)
{
    mailAuthSet("joe", "a.com", "pw", 0);
    std::vector<std::function<int()>> const operations = {
        [] { return mailAuthSet("joe", "a.com", "new", 0); },
        [] { return mailAuthRemove("joe", "a.com"); },
        [] { return mailAuthRename("joe", "jim", "a.com"); },
        [] { return dataOf("joe", "a.com") == "-1" ? -1 : 0; },
    };
    for (auto const& operation : operations)
        for (int const nth : {1, 2})
            for (char const* const call : {"prepare_v2", "step"}) {
                spy.forget();
                spy.fault(call, nth, SQLITE_BUSY, 9);
                spy.fault("nanosleep", 3);
                EXPECT_EQ(operation(), -1);
                EXPECT_THAT(spy.waits, ElementsAre(10000, 20000, 30000));
                EXPECT_EQ(spy.calls.back(), "nanosleep");
                EXPECT_THAT(spy.open, SizeIs(1)) << call << nth;
                spy.closeAbandoned();
            }
    EXPECT_THAT(reports(), IsEmpty());
    EXPECT_THAT(users(), ElementsAre("a.com|0|joe|pw|NULL|0"));
}
