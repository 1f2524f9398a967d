#include "mail/lib/mail_auth_users.h"

#include "lib/owned.h"
#include "mail/lib/mail_auth_domains.h"
#include "support/auth_database_test.h"
#include "support/fd_census.h"
#include "support/memory_faults.h"
#include "support/odd_names.h"
#include "support/ordinary_user.h"

#include <functional>

#include <sys/stat.h>

using ::testing::Contains;
using ::testing::ElementsAre;
using ::testing::IsEmpty;
using ::testing::Not;
using ::testing::Pair;
using ::testing::SizeIs;

namespace {

class MailAuthUsers : public AuthDatabaseTest
{
protected:
    // name, password and flags as one text; what get_user_data returns when that is not 1
    std::string dataOf(char const* name, char const* domain)
    {
        passwd_type_t data = {};
        int const result = get_user_data(&data, name, domain);
        CString const owned_name(data.name);
        CString const owned_passwd(data.passwd);
        if (result != 1) {
            EXPECT_EQ(data.name, nullptr);
            EXPECT_EQ(data.passwd, nullptr);
            return std::to_string(result);
        }
        return std::string(data.name) + "|" + (data.passwd ? data.passwd : "(null)") + "|" +
               std::to_string(data.flags);
    }

    // One call of an operation that fails, the result and the reports, all of priority 3.
    void expectFailure(std::function<int()> const& operation, char const* call, int nth, int result,
                       std::vector<std::string> const& texts)
    {
        spy.forget();
        LogRecorder::reports().clear();
        spy.fault(call, nth);
        EXPECT_EQ(operation(), result);
        std::vector<Report> expected;
        for (std::string const& text : texts)
            expected.emplace_back(3, text);
        EXPECT_EQ(reports(), expected);
        EXPECT_THAT(spy.open, IsEmpty()) << call << nth;
    }

    SqliteSpy& spy = sqliteSpy();
};

constexpr char select_id[] = "SELECT id FROM domains WHERE name=?";
constexpr char no_place[] = ": column index out of range";
constexpr char not_run[] = ": not an error";

std::string not_prepared(std::string const& query, char const* why)
{
    return "Unable to prepare SQL statement for query '" + query + "'" + why;
}

std::string not_bound(std::string const& what, std::string const& query)
{
    return "Unable to bind parameter " + what + " SQL statement for query '" + query + "'" +
           no_place;
}

} // namespace

TEST_F(MailAuthUsers, SetAPlainPassword)
{
    EXPECT_EQ(mailAuthSet("joe", "a.com", "secret", 0), 0);
    EXPECT_THAT(users(), ElementsAre("a.com|0|joe|secret|NULL|0"));
    EXPECT_THAT(reports(), IsEmpty());
}

TEST_F(MailAuthUsers, SetAnEncryptedPassword)
{
    EXPECT_EQ(mailAuthSet("joe", "a.com", "$1$x", MAIL_AUTH_CRYPTED), 0);
    EXPECT_THAT(users(), ElementsAre("a.com|0|joe|NULL|$1$x|0"));
}

TEST_F(MailAuthUsers, DisableTheUserByItsOwnFlag)
{
    EXPECT_EQ(mailAuthSet("joe", "a.com", "pw", MAIL_AUTH_DISABLED), 0);
    EXPECT_THAT(users(), ElementsAre("a.com|0|joe|pw|NULL|1"));
}

TEST_F(MailAuthUsers, RegisterAnUnknownDomainAsTheDomainFlagSays)
{
    EXPECT_EQ(mailAuthSet("joe", "on.com", "pw", MAIL_AUTH_CRYPTED | MAIL_AUTH_DISABLED), 0);
    EXPECT_EQ(mailAuthSet("joe", "off.com", "pw", MAIL_DOMAIN_AUTH_DISABLED), 0);
    EXPECT_EQ(mailAuthSet("joe", "new.com", "pw", MAIL_AUTH_DO_NOT_CHANGE), 0);
    EXPECT_THAT(domains(), ElementsAre("new.com|0", "off.com|1", "on.com|0"));
}

TEST_F(MailAuthUsers, LeaveAKnownDomainItsStatus)
{
    sql("INSERT INTO domains (name, status) VALUES ('on.com', 0), ('off.com', 1)");
    EXPECT_EQ(mailAuthSet("joe", "on.com", "pw", MAIL_DOMAIN_AUTH_DISABLED), 0);
    EXPECT_EQ(mailAuthSet("joe", "off.com", "pw", 0), 0);
    EXPECT_THAT(domains(), ElementsAre("off.com|1", "on.com|0"));
}

TEST_F(MailAuthUsers, ReplaceTheWholeRow)
{
    mailAuthSet("joe", "a.com", "plain", MAIL_AUTH_DISABLED);
    std::vector<std::string> const id = sql("SELECT id FROM users");
    EXPECT_EQ(mailAuthSet("joe", "a.com", "crypted", MAIL_AUTH_CRYPTED), 0);
    EXPECT_THAT(users(), ElementsAre("a.com|0|joe|NULL|crypted|0"));
    EXPECT_NE(sql("SELECT id FROM users"), id);
    EXPECT_EQ(mailAuthSet("joe", "a.com", "plain again", 0), 0);
    EXPECT_THAT(users(), ElementsAre("a.com|0|joe|plain again|NULL|0"));
}

TEST_F(MailAuthUsers, KeepTheRegisteredDomainWhenTheUserFails)
{
    sql("CREATE TRIGGER no BEFORE INSERT ON users BEGIN SELECT RAISE(ABORT, 'no %s users'); END");
    EXPECT_EQ(mailAuthSet("joe", "a.com", "pw", 0), -1);
    EXPECT_THAT(domains(), ElementsAre("a.com|0"));
    EXPECT_THAT(reports(), ElementsAre(Pair(3, "Unable to execute the mail authorization "
                                               "registration query: no %s users")));
}

TEST_F(MailAuthUsers, RemoveOneUserOfOneDomain)
{
    for (char const* const domain : {"a.com", "b.com"})
        for (char const* const name : {"ann", "joe"})
            mailAuthSet(name, domain, "pw", 0);
    EXPECT_EQ(mailAuthRemove("joe", "a.com"), 0);
    EXPECT_THAT(users(), ElementsAre("a.com|0|ann|pw|NULL|0", "b.com|0|ann|pw|NULL|0",
                                     "b.com|0|joe|pw|NULL|0"));
}

TEST_F(MailAuthUsers, RemoveNobodyWithoutAReport)
{
    mailAuthSet("joe", "a.com", "pw", 0);
    EXPECT_EQ(mailAuthRemove("ann", "a.com"), 0);
    EXPECT_EQ(mailAuthRemove("joe", "b.com"), 0);
    EXPECT_THAT(users(), SizeIs(1));
    EXPECT_THAT(domains(), ElementsAre("a.com|0"));
    EXPECT_THAT(reports(), IsEmpty());
}

TEST_F(MailAuthUsers, RenameOneUserOfOneDomain)
{
    mailAuthSet("joe", "a.com", "x", MAIL_AUTH_CRYPTED | MAIL_AUTH_DISABLED);
    mailAuthSet("joe", "b.com", "pw", 0);
    EXPECT_EQ(mailAuthRename("joe", "jim", "a.com"), 0);
    EXPECT_THAT(users(), ElementsAre("a.com|0|jim|NULL|x|1", "b.com|0|joe|pw|NULL|0"));
}

TEST_F(MailAuthUsers, TakeTheRenamingOfNobodyForASuccess)
{
    mailAuthSet("joe", "a.com", "pw", 0);
    EXPECT_EQ(mailAuthRename("ann", "jim", "a.com"), 0);
    EXPECT_THAT(users(), ElementsAre("a.com|0|joe|pw|NULL|0"));
    EXPECT_THAT(reports(), IsEmpty());
}

TEST_F(MailAuthUsers, RefuseARenameInAnUnknownDomain)
{
    EXPECT_EQ(mailAuthRename("joe", "jim", "%s.com"), -1);
    EXPECT_THAT(reports(),
                ElementsAre(Pair(3, "No such domain '%s.com' in the mail authentication DB")));
    EXPECT_THAT(domains(), IsEmpty());
}

TEST_F(MailAuthUsers, RefuseARenameOntoAnother)
{
    mailAuthSet("joe", "a.com", "pw", 0);
    mailAuthSet("jim", "a.com", "pw2", 0);
    EXPECT_EQ(mailAuthRename("joe", "jim", "a.com"), -1);
    EXPECT_THAT(users(), SizeIs(2));
    EXPECT_THAT(reports(),
                ElementsAre(Pair(3, "Unable to execute the mail authorization renaming query: "
                                    "UNIQUE constraint failed: users.name, users.dom_id")));
}

TEST_F(MailAuthUsers, CloneAPlainOrEncryptedPasswordWithItsFlags)
{
    mailAuthSet("plain", "a.com", "pw", 0);
    mailAuthSet("crypted", "a.com", "x", MAIL_AUTH_CRYPTED | MAIL_AUTH_DISABLED);
    EXPECT_EQ(mailAuthClone("plain", "a.com", "plain2", "a.com"), 0);
    EXPECT_EQ(mailAuthClone("crypted", "a.com", "crypted", "b.com"), 0);
    EXPECT_THAT(users(), ElementsAre("a.com|0|crypted|NULL|x|1", "a.com|0|plain|pw|NULL|0",
                                     "a.com|0|plain2|pw|NULL|0", "b.com|0|crypted|NULL|x|1"));
}

TEST_F(MailAuthUsers, CloneADisabledDomainsUserIntoADisabledDomain)
{
    mailAuthSet("joe", "off.com", "pw", MAIL_DOMAIN_AUTH_DISABLED);
    EXPECT_EQ(mailAuthClone("joe", "off.com", "joe", "alias.com"), 0);
    EXPECT_THAT(domains(), ElementsAre("alias.com|1", "off.com|1"));
    mailAuthEnableDomain("alias.com");
    EXPECT_EQ(mailAuthClone("joe", "off.com", "jim", "alias.com"), 0);
    EXPECT_THAT(domains(), ElementsAre("alias.com|0", "off.com|1"));
}

TEST_F(MailAuthUsers, CloneNobodyQuietly)
{
    mailAuthSet("joe", "a.com", "pw", 0);
    EXPECT_EQ(mailAuthClone("ann", "a.com", "ann", "b.com"), 0);
    EXPECT_EQ(mailAuthClone("joe", "nowhere.com", "joe", "b.com"), 0);
    EXPECT_THAT(domains(), ElementsAre("a.com|0"));
    EXPECT_THAT(reports(), IsEmpty());
}

TEST_F(MailAuthUsers, CloneAUserWithoutAnyPassword)
{
    sql("INSERT INTO domains (id, name) VALUES (1, 'a.com');"
        "INSERT INTO users (name, dom_id) VALUES ('joe', 1)");
    EXPECT_EQ(mailAuthClone("joe", "a.com", "jim", "a.com"), 0);
    EXPECT_THAT(users(), ElementsAre("a.com|0|jim|NULL|NULL|0", "a.com|0|joe|NULL|NULL|0"));
}

TEST_F(MailAuthUsers, ReportACloneWhoseSourceCannotBeRead)
{
    unlink(path.c_str());
    EXPECT_EQ(mailAuthClone("joe", "a.com", "joe", "b.com"), -1);
    EXPECT_THAT(reports(),
                ElementsAre(Pair(3, "Unable to open database(readonly) " + path +
                                        ": unable to open database file"),
                            Pair(3, "Unable to get users list from MTA password database")));
}

TEST_F(MailAuthUsers, GiveTheResultOfACloneThatCannotBeWritten)
{
    mailAuthSet("joe", "a.com", "pw", 0);
    sql("CREATE TRIGGER no BEFORE INSERT ON users BEGIN SELECT RAISE(ABORT, 'no'); END");
    EXPECT_EQ(mailAuthClone("joe", "a.com", "jim", "a.com"), -1);
    EXPECT_THAT(reports(), SizeIs(1));
}

TEST_F(MailAuthUsers, RemoveTheUserWhenThereIsNoPasswordToSet)
{
    for (char const* const none : {static_cast<char const*>(nullptr), ""}) {
        EXPECT_EQ(set_postbox_passwd("joe", "a.com", "pw", MAIL_AUTH_CRYPTED), 0);
        EXPECT_THAT(users(), ElementsAre("a.com|0|joe|NULL|pw|0"));
        EXPECT_EQ(set_postbox_passwd("joe", "a.com", none, MAIL_AUTH_CRYPTED), 0);
        EXPECT_THAT(users(), IsEmpty());
    }
}

TEST_F(MailAuthUsers, FailToSetAPasswordWithMinusOne)
{
    spy.fault("step", 1);
    EXPECT_EQ(set_postbox_passwd("joe", "a.com", "pw", 0), -1);
}

TEST_F(MailAuthUsers, ReadAPlainPassword)
{
    mailAuthSet("joe", "a.com", "pw", 0);
    EXPECT_EQ(dataOf("joe", "a.com"), "joe|pw|0");
}

TEST_F(MailAuthUsers, ReadAnEncryptedPasswordBeforeAPlainOne)
{
    sql("INSERT INTO domains (id, name) VALUES (1, 'a.com');"
        "INSERT INTO users (name, dom_id, userPassword, cmusaslsecretPLAIN) VALUES "
        "('both', 1, 'plain', 'crypted'), ('empty', 1, 'plain', ''), ('none', 1, NULL, NULL)");
    EXPECT_EQ(dataOf("both", "a.com"), "both|crypted|1");
    EXPECT_EQ(dataOf("empty", "a.com"), "empty||1");
    EXPECT_EQ(dataOf("none", "a.com"), "none|(null)|0");
}

TEST_F(MailAuthUsers, ReadEachStatusAsItsFlag)
{
    mailAuthSet("on", "on.com", "pw", 0);
    mailAuthSet("off", "on.com", "pw", MAIL_AUTH_DISABLED);
    mailAuthSet("on", "off.com", "pw", MAIL_DOMAIN_AUTH_DISABLED);
    mailAuthSet("off", "off.com", "x", MAIL_AUTH_CRYPTED | MAIL_AUTH_DISABLED);
    EXPECT_EQ(dataOf("on", "on.com"), "on|pw|0");
    EXPECT_EQ(dataOf("off", "on.com"), "off|pw|2");
    EXPECT_EQ(dataOf("on", "off.com"), "on|pw|4");
    EXPECT_EQ(dataOf("off", "off.com"), "off|x|7");
    sql("UPDATE domains SET status=5; UPDATE users SET status=-1");
    EXPECT_EQ(dataOf("on", "on.com"), "on|pw|6");
}

TEST_F(MailAuthUsers, ReadNobodyWithoutAReport)
{
    mailAuthSet("joe", "a.com", "pw", 0);
    EXPECT_EQ(dataOf("ann", "a.com"), "0");
    EXPECT_EQ(dataOf("joe", "b.com"), "0");
    EXPECT_THAT(reports(), IsEmpty());
}

TEST_F(MailAuthUsers, KeepNamesAndPasswordsByteByByte)
{
    std::vector<std::string> const& names = oddNames();
    for (size_t i = 0; i < names.size(); ++i) {
        char const* const name = names[i].c_str();
        char const* const domain = names[(i + 1) % names.size()].c_str();
        std::string const& password = names[(i + 2) % names.size()];
        EXPECT_EQ(mailAuthSet(name, domain, password.c_str(), 0), 0);
        EXPECT_EQ(dataOf(name, domain), names[i] + "|" + password + "|0");
        EXPECT_EQ(mailAuthClone(name, domain, domain, name), 0);
        EXPECT_EQ(dataOf(domain, name), std::string(domain) + "|" + password + "|0");
        EXPECT_EQ(mailAuthRename(domain, "%d'", name), 0);
        EXPECT_EQ(dataOf("%d'", name), "%d'|" + password + "|0");
        EXPECT_EQ(mailAuthRemove("%d'", name), 0);
        EXPECT_EQ(mailAuthRemove(name, domain), 0);
        EXPECT_THAT(users(), IsEmpty());
    }
    EXPECT_THAT(reports(), IsEmpty());
}

TEST_F(MailAuthUsers, ReportEachFailureToSet)
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
        expectFailure(set, "prepare_v2", 1, -1, {not_prepared(select_id, not_run), no_domain});
        expectFailure(set, "bind_text", 1, -1,
                      {not_bound("domain name 'a.com' to", select_id), no_domain});
        expectFailure(
            set, "step", 1, -1,
            {std::string("Unable to execute the domain selection query") + not_run, no_domain});
        expectFailure(set, "prepare_v2", 2, -1, {not_prepared(query, not_run)});
        expectFailure(set, "bind_text", 2, -1, {not_bound("mailname 'joe' to", query)});
        expectFailure(set, "bind_text", 3, -1,
                      {not_bound("password for mail address 'joe@a.com' to", query)});
        expectFailure(set, "bind_int64", 1, -1,
                      {not_bound("status for mail address 'joe@a.com' to ", query)});
        expectFailure(set, "bind_int64", 2, -1,
                      {not_bound("domain ID for mail address 'joe@a.com' to ", query)});
        expectFailure(set, "step", 2, -1,
                      {std::string("Unable to execute the mail authorization registration "
                                   "query") +
                       not_run});
    }
    EXPECT_THAT(users(), IsEmpty());
}

TEST_F(MailAuthUsers, ReportEachFailureToRemove)
{
    mailAuthSet("joe", "a.com", "pw", 0);
    std::string const query = "DELETE FROM users WHERE name=? AND dom_id=?";
    auto const remove = [] { return mailAuthRemove("joe", "a.com"); };
    expectFailure(remove, "prepare_v2", 2, -1, {not_prepared(query, not_run)});
    expectFailure(remove, "bind_text", 2, -1, {not_bound("mailname 'joe' to ", query)});
    expectFailure(remove, "bind_int64", 1, -1,
                  {not_bound("domain ID for mail address 'joe@a.com' to ", query)});
    expectFailure(
        remove, "step", 2, -1,
        {std::string("Unable to execute the mail authorization removal query") + not_run});
    EXPECT_THAT(users(), SizeIs(1));
}

TEST_F(MailAuthUsers, TakeAFailedLookUpForNothingToRemove)
{
    mailAuthSet("joe", "a.com", "pw", 0);
    auto const remove = [] { return mailAuthRemove("joe", "a.com"); };
    expectFailure(remove, "prepare_v2", 1, 0, {not_prepared(select_id, not_run)});
    expectFailure(remove, "bind_text", 1, 0, {not_bound("domain name 'a.com' to", select_id)});
    expectFailure(remove, "step", 1, 0,
                  {std::string("Unable to execute the domain selection query") + not_run});
    EXPECT_THAT(users(), SizeIs(1));
}

TEST_F(MailAuthUsers, ReportEachFailureToRename)
{
    mailAuthSet("joe", "a.com", "pw", 0);
    std::string const query = "UPDATE users SET name=? WHERE name=? AND dom_id=?";
    auto const rename = [] { return mailAuthRename("joe", "jim", "a.com"); };
    expectFailure(
        rename, "prepare_v2", 1, -1,
        {not_prepared(select_id, not_run), "No such domain 'a.com' in the mail authentication DB"});
    expectFailure(rename, "prepare_v2", 2, -1, {not_prepared(query, not_run)});
    expectFailure(rename, "bind_text", 2, -1, {not_bound("new mailname 'jim' to ", query)});
    expectFailure(rename, "bind_text", 3, -1, {not_bound("old mailname 'joe' to ", query)});
    expectFailure(rename, "bind_int64", 1, -1,
                  {not_bound("domain ID for mail address 'joe@a.com' to ", query)});
    expectFailure(
        rename, "step", 2, -1,
        {std::string("Unable to execute the mail authorization renaming query") + not_run});
    EXPECT_THAT(users(), ElementsAre("a.com|0|joe|pw|NULL|0"));
}

TEST_F(MailAuthUsers, ReportEachFailureToRead)
{
    mailAuthSet("joe", "a.com", "pw", 0);
    auto const read = [] {
        passwd_type_t data = {};
        int const result = get_user_data(&data, "joe", "a.com");
        EXPECT_EQ(data.name, nullptr);
        EXPECT_EQ(data.passwd, nullptr);
        return result;
    };
    std::string const bind = "Unable to bind parameter ";
    expectFailure(read, "prepare_v2", 1, -1,
                  {not_prepared("SELECT id, status FROM domains WHERE name=?", not_run)});
    expectFailure(read, "bind_text", 1, -1, {bind + "domain id for: a.com" + no_place});
    expectFailure(read, "step", 1, -1,
                  {std::string("Unable to get domain id") + not_run,
                   "Unable to get mail domain id for: a.com"});
    expectFailure(read, "prepare_v2", 2, -1,
                  {not_prepared("SELECT name, userPassword, cmusaslsecretPLAIN, status FROM users "
                                "WHERE dom_id=? AND name=?",
                                not_run)});
    expectFailure(read, "bind_int64", 1, -1, {bind + "bind domain id for: a.com" + no_place});
    expectFailure(read, "bind_text", 2, -1, {bind + "bind mailname joe" + no_place});
    expectFailure(read, "step", 2, -1,
                  {std::string("Unable to get passwd for mailname: joe") + not_run});
}

TEST_F(MailAuthUsers, FailWhenTheDatabaseCannotBeOpened)
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

TEST_F(MailAuthUsers, SayThatTheCopyOfARowHasNoMemory)
{
    mailAuthSet("joe", "a.com", "pw", 0);
    int refused_copies = 0;
    for (int number = 1; number < 60; ++number) {
        LogRecorder::reports().clear();
        passwd_type_t data = {};
        int result = 0;
        {
            AllocationFailure const failure(number);
            result = get_user_data(&data, "joe", "a.com");
        }
        CString const name(data.name);
        CString const passwd(data.passwd);
        if (result != 1) {
            EXPECT_EQ(result, -1);
            EXPECT_EQ(name, nullptr);
            EXPECT_EQ(passwd, nullptr);
            EXPECT_THAT(reports(), Not(IsEmpty()));
        }
        if (reports() == std::vector<Report>{{3, "System error: Cannot allocate memory"}})
            ++refused_copies;
    }
    EXPECT_EQ(refused_copies, 2);
}

TEST_F(MailAuthUsers, ReportTheStatementWhenTheFileIsMissing)
{
    unlink(path.c_str());
    EXPECT_EQ(mailAuthSet("joe", "a.com", "pw", 0), -1);
    EXPECT_EQ(mailAuthRemove("joe", "a.com"), 0);
    Report const report = {3, not_prepared(select_id, ": no such table: domains")};
    EXPECT_THAT(reports(),
                ElementsAre(report, Pair(3, "No such domain 'a.com' in the mail authentication DB"),
                            report));
    EXPECT_EQ(readFile(path), "");
}

TEST_F(MailAuthUsers, FailAtTheStepOfAFileThatMayOnlyBeRead)
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

TEST_F(MailAuthUsers, ReportAFileThatIsNoDatabase)
{
    writeFile(path, std::string(8192, 'x'));
    EXPECT_EQ(mailAuthSet("joe", "a.com", "pw", 0), -1);
    EXPECT_EQ(dataOf("joe", "a.com"), "-1");
    EXPECT_THAT(reports(),
                ElementsAre(Pair(3, not_prepared(select_id, ": file is not a database")),
                            Pair(3, "No such domain 'a.com' in the mail authentication DB"),
                            Pair(3, not_prepared("SELECT id, status FROM domains WHERE name=?",
                                                 ": file is not a database"))));
    EXPECT_EQ(readFile(path), std::string(8192, 'x'));
}

TEST_F(MailAuthUsers, EndOnTheSpotWhenTheWaitIsRefused)
{
    mailAuthSet("joe", "a.com", "pw", 0);
    std::vector<std::function<int()>> const operations = {
        [] { return mailAuthSet("joe", "a.com", "new", 0); },
        [] { return mailAuthRemove("joe", "a.com"); },
        [] { return mailAuthRename("joe", "jim", "a.com"); },
        [this] { return dataOf("joe", "a.com") == "-1" ? -1 : 0; },
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

TEST_F(MailAuthUsers, HoldNoFileBetweenCalls)
{
    std::set<int> const before = openDescriptors();
    mailAuthSet("joe", "a.com", "pw", 0);
    mailAuthClone("joe", "a.com", "ann", "b.com");
    mailAuthRename("joe", "jim", "a.com");
    mailAuthRename("joe", "jim", "nowhere.com");
    mailAuthRemove("jim", "a.com");
    mailAuthRemove("jim", "nowhere.com");
    dataOf("ann", "b.com");
    dataOf("joe", "nowhere.com");
    EXPECT_EQ(openDescriptors(), before);
}
