#include "mail/lib/accounts/mail_auth_iterate.h"

#include "mail/lib/accounts/mail_auth_users.h"
#include "support/auth_database_test.h"
#include "support/fd_census.h"
#include "support/memory_faults.h"
#include "support/odd_names.h"

#include <functional>
#include <stdexcept>

using ::testing::ElementsAre;
using ::testing::IsEmpty;
using ::testing::Pair;
using ::testing::SizeIs;
using ::testing::StartsWith;

namespace {

// The users that a visitor saw, and its answers.
struct Visits
{
    std::vector<std::string> seen; // address, password and flags
    std::vector<int> answers;      // 1 when there are no more of them
};

int visit(char const* mailAddress, char const* password, MailAuthFlagsT flags, void* data)
{
    Visits& visits = *static_cast<Visits*>(data);
    visits.seen.push_back(std::string(mailAddress) + "|" + password + "|" + std::to_string(flags));
    size_t const number = visits.seen.size() - 1;
    return number < visits.answers.size() ? visits.answers[number] : 1;
}

class MailAuthIterate : public AuthDatabaseTest
{
protected:
    void SetUp() override
    {
        AuthDatabaseTest::SetUp();
        sql("INSERT INTO domains (id, name, status) VALUES (1, 'b.com', 0), (2, 'a.com', 1)");
    }

    void add(char const* name, int domain, char const* columns, int status = 0)
    {
        sql("INSERT INTO users (name, dom_id, status, userPassword, cmusaslsecretPLAIN) VALUES ('" +
            std::string(name) + "', " + std::to_string(domain) + ", " + std::to_string(status) +
            ", " + columns + ")");
    }
    Visits visits;
};

constexpr char select_one[] =
    "SELECT u.userPassword AS password, u.cmusaslsecretPLAIN AS encPassword, u.status AS "
    "userDisabled, d.status AS domainDisabled FROM users AS u, domains AS d WHERE u.dom_id = d.id "
    "AND u.name=? AND d.name=?";
constexpr char select_all[] =
    "SELECT u.name || '@' || d.name as mailAddress, u.userPassword AS password, "
    "u.cmusaslsecretPLAIN AS encPassword, u.status AS userDisabled, d.status AS domainDisabled "
    "FROM users AS u, domains AS d WHERE u.dom_id = d.id";

} // namespace

TEST_F(MailAuthIterate, ShowAllUsersByDomainAndName)
{
    add("joe", 1, "'pw1', NULL");
    add("ann", 1, "'pw2', NULL");
    add("zoe", 2, "'pw3', NULL");
    EXPECT_EQ(mailAuthIterateAll(visit, &visits), 1);
    EXPECT_THAT(visits.seen, ElementsAre("zoe@a.com|pw3|4", "ann@b.com|pw2|0", "joe@b.com|pw1|0"));
    EXPECT_THAT(reports(), IsEmpty());
}

TEST_F(MailAuthIterate, GiveOneWhenThereIsNobodyToShow)
{
    EXPECT_EQ(mailAuthIterateAll(visit, &visits), 1);
    EXPECT_EQ(mailAuthCheckShort("joe", visit, &visits), 1);
    EXPECT_THAT(visits.seen, IsEmpty());
    EXPECT_THAT(reports(), IsEmpty());
}

TEST_F(MailAuthIterate, StopAtTheFirstAnswerThatIsNotPositive)
{
    for (char const* const name : {"a", "b", "c"})
        add(name, 1, "'pw', NULL");
    for (int const answer : {0, -1, -7}) {
        visits.seen.clear();
        visits.answers = {2, answer};
        EXPECT_EQ(mailAuthIterateAll(visit, &visits), answer);
        EXPECT_THAT(visits.seen, SizeIs(2));
    }
}

TEST_F(MailAuthIterate, GiveTheLastAnswerAtTheEnd)
{
    for (char const* const name : {"a", "b"})
        add(name, 1, "'pw', NULL");
    visits.answers = {9, 5};
    EXPECT_EQ(mailAuthIterateAll(visit, &visits), 5);
}

TEST_F(MailAuthIterate, ShowThePasswordThatCounts)
{
    add("a", 1, "'plain', NULL");
    add("b", 1, "'plain', 'crypted'");
    add("c", 1, "'', 'crypted'");
    add("d", 1, "NULL, 'crypted'");
    add("e", 1, "'', NULL");
    add("f", 1, "'', ''");
    add("g", 1, "NULL, ''");
    std::vector<std::string> const expected = {
        "a@b.com|plain|0", "b@b.com|plain|0", "c@b.com|crypted|1", "d@b.com|crypted|1",
        "e@b.com||0",      "f@b.com||1",      "g@b.com||1"};
    EXPECT_EQ(mailAuthIterateAll(visit, &visits), 1);
    EXPECT_EQ(visits.seen, expected);
    visits.seen.clear();
    for (char const* const address :
         {"a@b.com", "b@b.com", "c@b.com", "d@b.com", "e@b.com", "f@b.com", "g@b.com"})
        EXPECT_EQ(mailAuthCheck(address, visit, &visits), 1);
    EXPECT_EQ(visits.seen, expected);
    EXPECT_THAT(reports(), IsEmpty());
}

TEST_F(MailAuthIterate, ShowEachStatusAsItsFlag)
{
    add("a", 1, "'pw', NULL", 1);
    add("a", 2, "NULL, 'x'", -3);
    EXPECT_EQ(mailAuthIterateAll(visit, &visits), 1);
    EXPECT_EQ(mailAuthCheck("a@a.com", visit, &visits), 1);
    EXPECT_THAT(visits.seen, ElementsAre("a@a.com|x|7", "a@b.com|pw|2", "a@a.com|x|7"));
}

TEST_F(MailAuthIterate, SkipAUserWithoutAnyPassword)
{
    add("a", 1, "'pw', NULL");
    add("b%s", 1, "NULL, NULL");
    add("c", 1, "'pw', NULL");
    visits.answers = {3, 4};
    EXPECT_EQ(mailAuthIterateAll(visit, &visits), 4);
    EXPECT_THAT(visits.seen, ElementsAre("a@b.com|pw|0", "c@b.com|pw|0"));
    EXPECT_THAT(reports(), ElementsAre(Pair(3, "empty password properties (both plain and "
                                               "encrypted) for user b%s@b.com, skipped")));
}

TEST_F(MailAuthIterate, SkipAUserWhoseDomainHasNoName)
{
    sql("INSERT INTO domains (id, name) VALUES (3, NULL)");
    add("a", 3, "'pw', NULL");
    EXPECT_EQ(mailAuthIterateAll(visit, &visits), 1);
    EXPECT_THAT(visits.seen, IsEmpty());
    EXPECT_THAT(reports(), ElementsAre(Pair(4, "NULL or empty mail address stored in the database, "
                                               "skipped")));
}

TEST_F(MailAuthIterate, SkipARowWhoseAddressIsEmpty)
{
    sqlite3* db = nullptr;
    sqlite3_stmt* statement = nullptr;
    ASSERT_EQ(prepareIterateDBQuery(&db, &statement,
                                    "AND 0 UNION ALL SELECT '', 'pw', NULL, 0, 0 "
                                    "UNION ALL SELECT 'joe@b.com', 'pw', NULL, 0, 0"),
              0);
    EXPECT_EQ(doIterateDB(db, statement, visit, &visits), 1);
    EXPECT_THAT(visits.seen, ElementsAre("joe@b.com|pw|0"));
    EXPECT_THAT(reports(), ElementsAre(Pair(4, "NULL or empty mail address stored in the database, "
                                               "skipped")));
}

TEST_F(MailAuthIterate, ShowALocalPartOfEveryDomain)
{
    add("joe", 1, "'pw1', NULL");
    add("joe", 2, "'pw2', NULL");
    add("ann", 1, "'pw3', NULL");
    EXPECT_EQ(mailAuthCheckShort("joe", visit, &visits), 1);
    EXPECT_THAT(visits.seen, ::testing::UnorderedElementsAre("joe@b.com|pw1|0", "joe@a.com|pw2|4"));
    visits = {{}, {-4}};
    EXPECT_EQ(mailAuthCheckShort("ann", visit, &visits), -4);
    EXPECT_THAT(visits.seen, ElementsAre("ann@b.com|pw3|0"));
}

TEST_F(MailAuthIterate, GiveTheVisitorsAnswerToACheck)
{
    add("joe", 1, "'pw', NULL");
    for (int const answer : {5, 0, -2}) {
        visits.seen.clear();
        visits.answers = {answer};
        EXPECT_EQ(mailAuthCheck("joe@b.com", visit, &visits), answer);
        EXPECT_THAT(visits.seen, ElementsAre("joe@b.com|pw|0"));
    }
}

TEST_F(MailAuthIterate, SayThatACheckedUserDoesNotExist)
{
    add("joe", 1, "'pw', NULL");
    EXPECT_EQ(mailAuthCheck("joe@a.com", visit, &visits), 1);
    EXPECT_EQ(mailAuthCheck("100%s@b.com", visit, &visits), 1);
    EXPECT_THAT(visits.seen, IsEmpty());
    EXPECT_THAT(reports(),
                ElementsAre(Pair(6, "No such user 'joe@a.com' in mail authorization database"),
                            Pair(6, "No such user '100%s@b.com' in mail authorization database")));
}

TEST_F(MailAuthIterate, RefuseToCheckAUserWithoutAnyPassword)
{
    add("joe", 1, "NULL, NULL");
    EXPECT_EQ(mailAuthCheck("joe@b.com", visit, &visits), -1);
    EXPECT_THAT(visits.seen, IsEmpty());
    EXPECT_THAT(reports(), ElementsAre(Pair(3, "NULL password fields (noth plain and encrypted) "
                                               "for user joe@b.com, skipped")));
}

TEST_F(MailAuthIterate, RefuseAnAddressThatLacksAPart)
{
    for (char const* const address : {"", "@", "joe", "joe@", "@b.com", "@@"}) {
        LogRecorder::reports().clear();
        EXPECT_EQ(mailAuthCheck(address, visit, &visits), -1);
        EXPECT_THAT(reports(),
                    ElementsAre(Pair(3, "Invalid mail address '" + std::string(address) + "'")));
    }
    EXPECT_THAT(spy.calls, IsEmpty());
}

TEST_F(MailAuthIterate, CutAnAddressAtItsFirstAt)
{
    sql("INSERT INTO domains (id, name) VALUES (3, 'b@c.com')");
    add("a", 3, "'pw', NULL");
    EXPECT_EQ(mailAuthCheck("a@b@c.com", visit, &visits), 1);
    EXPECT_THAT(visits.seen, ElementsAre("a@b@c.com|pw|0"));
}

TEST_F(MailAuthIterate, KeepNamesAndPasswordsByteByByte)
{
    for (std::string const& name : oddNames()) {
        if (name.empty())
            continue;
        visits.seen.clear();
        mailAuthSet(name.c_str(), name.c_str(), name.c_str(), 0);
        std::string const address = name + "@" + name;
        EXPECT_EQ(mailAuthCheck(address.c_str(), visit, &visits), 1);
        EXPECT_EQ(mailAuthCheckShort(name.c_str(), visit, &visits), 1);
        EXPECT_EQ(mailAuthIterateAll(visit, &visits), 1);
        std::string const seen = address + "|" + name + "|0";
        EXPECT_THAT(visits.seen, ElementsAre(seen, seen, seen));
        mailAuthRemove(name.c_str(), name.c_str());
    }
    EXPECT_THAT(reports(), IsEmpty());
}

TEST_F(MailAuthIterate, JoinAPredicateWithABlank)
{
    add("joe", 1, "'pw1', NULL");
    for (char const* const predicate : {static_cast<char const*>(nullptr), "", "AND d.id=1"}) {
        visits.seen.clear();
        sqlite3* db = nullptr;
        sqlite3_stmt* statement = nullptr;
        ASSERT_EQ(prepareIterateDBQuery(&db, &statement, predicate), 0);
        EXPECT_EQ(sqlite3_sql(statement), predicate && *predicate
                                              ? std::string(select_all) + " " + predicate
                                              : std::string(select_all));
        EXPECT_EQ(doIterateDB(db, statement, visit, &visits), 1);
        EXPECT_THAT(visits.seen, ElementsAre("joe@b.com|pw1|0"));
    }
}

TEST_F(MailAuthIterate, OpenNothingForAPredicateThatIsNoSql)
{
    sqlite3* db = nullptr;
    sqlite3_stmt* statement = nullptr;
    EXPECT_EQ(prepareIterateDBQuery(&db, &statement, "AND %s"), -1);
    EXPECT_EQ(db, nullptr);
    EXPECT_EQ(statement, nullptr);
    EXPECT_THAT(reports(), ElementsAre(Pair(3, "Unable to prepare SQL statement for query '" +
                                                   std::string(select_all) +
                                                   " AND %s': near \"%\": syntax error")));
}

TEST_F(MailAuthIterate, SayThatTheQueryHasNoMemory)
{
    AllocationFailure const failure(1);
    EXPECT_EQ(mailAuthIterateAll(visit, &visits), -1);
    EXPECT_THAT(reports(), ElementsAre(Pair(2, "Insufficient memory")));
    EXPECT_THAT(spy.calls, IsEmpty());
}

TEST_F(MailAuthIterate, ReportEachFailureAndLeaveNothingOpen)
{
    add("joe", 1, "'pw', NULL");
    std::string const all_users = select_all;
    std::string const step = "Unable to execute the user selection query: not an error";
    auto const check = [this] { return mailAuthCheck("joe@b.com", visit, &visits); };
    auto const check_short = [this] { return mailAuthCheckShort("joe", visit, &visits); };
    auto const all = [this] { return mailAuthIterateAll(visit, &visits); };
    expectFailure(check, "prepare_v2", 1, -1, {notPrepared(select_one, not_run)});
    expectFailure(check, "bind_text", 1, -1, {notBound("mailname 'joe' to", select_one)});
    expectFailure(check, "bind_text", 2, -1, {notBound("domain name 'b.com' to", select_one)});
    expectFailure(check, "step", 1, -1, {step});
    expectFailure(check_short, "prepare_v2", 1, -1,
                  {notPrepared(all_users + " AND u.name=?", not_run)});
    expectFailure(check_short, "bind_text", 1, -1,
                  {"Unable to bind parameter mailname 'joe' to  SQL statement: column index out of "
                   "range"});
    expectFailure(check_short, "step", 1, -1, {step});
    expectFailure(all, "prepare_v2", 1, -1,
                  {notPrepared(all_users + " ORDER BY d.name, u.name", not_run)});
    expectFailure(all, "step", 1, -1, {step});
    EXPECT_THAT(visits.seen, IsEmpty());
}

TEST_F(MailAuthIterate, FailAfterAVisitWhenTheNextStepFails)
{
    add("ann", 1, "'pw', NULL");
    add("joe", 1, "'pw', NULL");
    spy.fault("step", 2, SQLITE_IOERR);
    EXPECT_EQ(mailAuthIterateAll(visit, &visits), -1);
    EXPECT_THAT(visits.seen, ElementsAre("ann@b.com|pw|0"));
    EXPECT_THAT(reports(), ElementsAre(Pair(3, StartsWith("Unable to execute the user selection "
                                                          "query: "))));
}

TEST_F(MailAuthIterate, FailWhenTheDatabaseCannotBeOpened)
{
    unlink(path.c_str());
    EXPECT_EQ(mailAuthCheck("joe@b.com", visit, &visits), -1);
    EXPECT_EQ(mailAuthCheckShort("joe", visit, &visits), -1);
    EXPECT_EQ(mailAuthIterateAll(visit, &visits), -1);
    Report const report = {3, "Unable to open database(readonly) " + path +
                                  ": unable to open database file"};
    EXPECT_THAT(reports(), ElementsAre(report, report, report));
}

TEST_F(MailAuthIterate, EndOnTheSpotWhenTheWaitIsRefused)
{
    add("joe", 1, "'pw', NULL");
    std::vector<std::function<int()>> const operations = {
        [this] { return mailAuthCheck("joe@b.com", visit, &visits); },
        [this] { return mailAuthCheckShort("joe", visit, &visits); },
        [this] { return mailAuthIterateAll(visit, &visits); },
    };
    for (auto const& operation : operations)
        for (char const* const call : {"prepare_v2", "step", "close"}) {
            spy.forget();
            spy.fault(call, 1, SQLITE_BUSY, 9);
            spy.fault("nanosleep", 2);
            EXPECT_EQ(operation(), -1);
            EXPECT_EQ(spy.calls.back(), "nanosleep");
            EXPECT_THAT(spy.open, SizeIs(1)) << call;
            spy.forget();
            spy.closeAbandoned();
        }
    EXPECT_THAT(reports(), IsEmpty());
}

TEST_F(MailAuthIterate, CloseWhatAVisitorThatRaisesLeavesOpen)
{
    add("joe", 1, "'pw', NULL");
    auto const raise = [](char const*, char const*, MailAuthFlagsT, void*) -> int {
        throw std::runtime_error("visitor");
    };
    std::set<int> const before = openDescriptors();
    EXPECT_THROW(mailAuthIterateAll(raise, nullptr), std::runtime_error);
    EXPECT_THROW(mailAuthCheckShort("joe", raise, nullptr), std::runtime_error);
    EXPECT_THROW(mailAuthCheck("joe@b.com", raise, nullptr), std::runtime_error);
    EXPECT_EQ(openDescriptors(), before);
}
