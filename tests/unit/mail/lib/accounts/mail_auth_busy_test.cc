#include "mail/lib/accounts/mail_auth_connection.h"

#include "mail/lib/accounts/account_wait.h"
#include "mail/lib/accounts/mail_authenticate.h"
#include "support/auth_database_test.h"
#include "support/child_run.h"
#include "support/fast_clock.h"

#include <array>

using ::testing::Contains;
using ::testing::ElementsAre;
using ::testing::IsEmpty;
using ::testing::Not;
using ::testing::SizeIs;

namespace {

class MailAuthBusy : public AuthDatabaseTest
{
};

constexpr char count_domains[] = "SELECT count(*) FROM domains";
constexpr char add_domain[] = "INSERT INTO domains (name) VALUES ('example.com')";

// A connection of another process that locks the database for a while.
class Locked
{
public:
    Locked(std::string const& path, char const* begin, useconds_t microseconds)
    {
        std::array<int, 2> ready = {};
        if (pipe(ready.data()) != 0)
            abort();
        child = fork();
        if (child == 0) {
            SqliteSpy::Inside const unseen(sqliteSpy());
            sqlite3* db = nullptr;
            sqlite3_open(path.c_str(), &db);
            bool const held = sqlite3_exec(db, begin, nullptr, nullptr, nullptr) == SQLITE_OK;
            if (write(ready[1], held ? "y" : "n", 1) != 1)
                _exit(2);
            usleep(microseconds);
            sqlite3_close(db);
            _exit(held ? 0 : 1);
        }
        char answer = 0;
        locked = read(ready[0], &answer, 1) == 1 && answer == 'y';
        close(ready[0]);
        close(ready[1]);
    }
    ~Locked() { waitpid(child, nullptr, 0); }
    Locked(Locked const&) = delete;
    Locked& operator=(Locked const&) = delete;

    bool locked = false;

private:
    pid_t child = -1;
};

} // namespace

TEST_F(MailAuthBusy, RepeatsABusyCallWithGrowingWaits)
{
    MailAuthConnection db;
    ASSERT_EQ(db.openForReading(), 0);
    spy.fault("prepare_v2", 1, SQLITE_BUSY, 4);
    EXPECT_EQ(db.prepare(count_domains), 0);
    EXPECT_THAT(spy.calls,
                ElementsAre("open_v2", "prepare_v2", "prepare_v2", "nanosleep", "prepare_v2",
                            "nanosleep", "prepare_v2", "nanosleep", "prepare_v2", "nanosleep"));
    EXPECT_THAT(spy.waits, ElementsAre(10000, 20000, 30000, 40000));
    EXPECT_EQ(db.finish(), 0);
    EXPECT_THAT(reports(), IsEmpty());
}

TEST_F(MailAuthBusy, DoesNotWaitForACallThatIsNotBusy)
{
    sql("PRAGMA journal_mode=WAL");
    MailAuthConnection db;
    ASSERT_EQ(db.openForWriting(), 0);
    ASSERT_EQ(db.prepare(add_domain), 0);
    EXPECT_EQ(db.step(), SQLITE_DONE);
    EXPECT_EQ(db.finish(), 0);
    EXPECT_THAT(spy.calls,
                ElementsAre("open_v2", "prepare_v2", "step", "finalize", "exec", "close"))
        << "the mode is set before the end";
}

TEST_F(MailAuthBusy, StartsTheWaitAnewForEachCall)
{
    MailAuthConnection db;
    ASSERT_EQ(db.openForReading(), 0);
    spy.fault("prepare_v2", 1, SQLITE_BUSY, 3);
    spy.fault("step", 1, SQLITE_BUSY, 2);
    spy.fault("close", 1, SQLITE_BUSY, 2);
    ASSERT_EQ(db.prepare(count_domains), 0);
    EXPECT_EQ(db.step(), SQLITE_ROW);
    EXPECT_EQ(db.finish(), 0);
    EXPECT_THAT(spy.waits, ElementsAre(10000, 20000, 30000, 10000, 20000, 10000, 20000));
}

TEST_F(MailAuthBusy, DoesNotRepeatAPrepareThatFindsTheDatabaseLocked)
{
    MailAuthConnection db;
    ASSERT_EQ(db.openForReading(), 0);
    spy.fault("prepare_v2", 1, SQLITE_LOCKED, 1);
    EXPECT_EQ(db.prepare(count_domains), -1);
    EXPECT_THAT(spy.calls, ElementsAre("open_v2", "prepare_v2", "close"));
    EXPECT_FALSE(db.isOpen());
}

TEST_F(MailAuthBusy, ResetsTheStatementBeforeAStepIsRepeated)
{
    for (int const result : {SQLITE_BUSY, SQLITE_LOCKED}) {
        MailAuthConnection db;
        ASSERT_EQ(db.openForReading(), 0);
        ASSERT_EQ(db.prepare(count_domains), 0);
        spy.forget();
        spy.fault("step", 1, result, 2);
        EXPECT_EQ(db.step(), SQLITE_ROW);
        EXPECT_THAT(spy.calls, ElementsAre("step", "reset", "step", "nanosleep", "reset", "step",
                                           "nanosleep"));
        EXPECT_EQ(db.finish(), 0);
    }
}

TEST_F(MailAuthBusy, DoesNotResetBetweenTheRowsOfAStatement)
{
    sql("INSERT INTO domains (name) VALUES ('a'), ('b')");
    MailAuthConnection db;
    ASSERT_EQ(db.openForReading(), 0);
    ASSERT_EQ(db.prepare("SELECT name FROM domains ORDER BY name"), 0);
    EXPECT_EQ(db.step(), SQLITE_ROW);
    EXPECT_STREQ(db.text(0), "a");
    EXPECT_EQ(db.step(), SQLITE_ROW);
    EXPECT_STREQ(db.text(0), "b");
    EXPECT_EQ(db.step(), SQLITE_DONE);
    EXPECT_THAT(spy.calls, Not(Contains("reset")));
    EXPECT_EQ(db.finish(), 0);
}

TEST_F(MailAuthBusy, RepeatsACloseThatIsBusy)
{
    MailAuthConnection db;
    ASSERT_EQ(db.openForReading(), 0);
    spy.fault("close", 1, SQLITE_BUSY, 1);
    EXPECT_EQ(db.finish(), 0);
    EXPECT_THAT(spy.calls, ElementsAre("open_v2", "close", "close", "nanosleep"));
}

TEST_F(MailAuthBusy, DoesNotRepeatACloseThatFindsTheDatabaseLocked)
{
    MailAuthConnection db;
    ASSERT_EQ(db.openForReading(), 0);
    spy.fault("close", 1, SQLITE_LOCKED, 1);
    EXPECT_EQ(db.finish(), 0);
    EXPECT_THAT(spy.calls, ElementsAre("open_v2", "close"));
    spy.closeAbandoned();
}

TEST_F(MailAuthBusy, RepeatsAScriptThatFindsTheDatabaseBusyOrLocked)
{
    for (int const result : {SQLITE_BUSY, SQLITE_LOCKED}) {
        MailAuthConnection db;
        ASSERT_EQ(db.openForWriting(), 0);
        spy.forget();
        spy.fault("exec", 1, result, 2);
        char* error = nullptr;
        EXPECT_EQ(db.execute("DELETE FROM domains", &error), SQLITE_OK);
        EXPECT_EQ(error, nullptr);
        EXPECT_THAT(spy.calls, ElementsAre("exec", "exec", "nanosleep", "exec", "nanosleep"));
        EXPECT_EQ(db.finish(), 0);
    }
}

TEST_F(MailAuthBusy, FreesTheTextOfEachScriptThatIsRepeated)
{
    MailAuthConnection db;
    ASSERT_EQ(db.openForWriting(), 0);
    Locked const other(path, "BEGIN EXCLUSIVE", 100000);
    ASSERT_TRUE(other.locked);
    char* error = nullptr;
    EXPECT_EQ(db.execute("DELETE FROM domains", &error), SQLITE_OK);
    EXPECT_EQ(error, nullptr);
    EXPECT_EQ(db.finish(), 0);
}

TEST_F(MailAuthBusy, AbandonsEverythingWhenTheWaitIsRefusedInAPrepare)
{
    MailAuthConnection db;
    ASSERT_EQ(db.openForReading(), 0);
    spy.fault("prepare_v2", 1, SQLITE_BUSY, 9);
    spy.fault("nanosleep", 2);
    EXPECT_EQ(db.prepare(count_domains), -1);
    EXPECT_EQ(errno, EINTR);
    EXPECT_TRUE(db.isAbandoned());
    EXPECT_EQ(db.finish(), -1);
    EXPECT_THAT(spy.waits, ElementsAre(10000, 20000));
    EXPECT_THAT(spy.calls, Not(Contains("close")));
    EXPECT_THAT(spy.open, SizeIs(1));
    EXPECT_THAT(reports(), IsEmpty());
    spy.closeAbandoned();
}

TEST_F(MailAuthBusy, AbandonsTheStatementWhenAStepsWaitIsRefused)
{
    MailAuthConnection db;
    ASSERT_EQ(db.openForReading(), 0);
    ASSERT_EQ(db.prepare(count_domains), 0);
    spy.fault("step", 1, SQLITE_BUSY, 9);
    spy.fault("nanosleep", 1);
    int const result = db.step();
    EXPECT_NE(result, SQLITE_ROW);
    EXPECT_NE(result, SQLITE_DONE);
    EXPECT_EQ(db.failure("not reported: %s", db.message()), -1);
    EXPECT_EQ(db.stepFailure("not reported: %s", db.message()), -1);
    EXPECT_EQ(db.prepare(count_domains), -1);
    EXPECT_EQ(db.finish(), -1);
    EXPECT_THAT(spy.calls, Not(Contains("finalize")));
    EXPECT_THAT(spy.calls, Not(Contains("close")));
    EXPECT_THAT(reports(), IsEmpty());
    ASSERT_THAT(spy.open, SizeIs(1));
    EXPECT_NE(sqlite3_next_stmt(*spy.open.begin(), nullptr), nullptr);
    spy.closeAbandoned();
}

TEST_F(MailAuthBusy, FailsWhenTheWaitIsRefusedInAClose)
{
    MailAuthConnection db;
    ASSERT_EQ(db.openForReading(), 0);
    spy.fault("close", 1, SQLITE_BUSY, 9);
    spy.fault("nanosleep", 1);
    EXPECT_EQ(db.finish(), -1);
    EXPECT_THAT(spy.calls, ElementsAre("open_v2", "close", "close", "nanosleep"));
    EXPECT_THAT(spy.open, SizeIs(1));
    spy.forget();
    spy.closeAbandoned();
}

TEST_F(MailAuthBusy, FailsWhenAWaitIsRefusedDespiteALaterSuccess)
{
    MailAuthConnection db;
    ASSERT_EQ(db.openForReading(), 0);
    spy.fault("prepare_v2", 1, SQLITE_BUSY, 1);
    spy.fault("nanosleep", 1);
    EXPECT_EQ(db.prepare(count_domains), -1);
    EXPECT_TRUE(db.isAbandoned());
    spy.closeAbandoned();
}

TEST_F(MailAuthBusy, EndsWhenTheWaitReachesASecond)
{
    MailAuthConnection db;
    ASSERT_EQ(db.openForReading(), 0);
    ASSERT_EQ(db.prepare(count_domains), 0);
    spy.waits_are_free = true;
    spy.fault("step", 1, SQLITE_BUSY, 1000000);
    EXPECT_EQ(db.step(), -1);
    EXPECT_EQ(errno, EINVAL);
    ASSERT_THAT(spy.waits, SizeIs(100000));
    EXPECT_EQ(spy.waits.back(), 1000000000);
    EXPECT_TRUE(db.isAbandoned());
    spy.closeAbandoned();
}

TEST_F(MailAuthBusy, WaitsForAnotherProcessThatWrites)
{
    for (bool const writing : {false, true}) {
        MailAuthConnection db;
        ASSERT_EQ(writing ? db.openForWriting() : db.openForReading(), 0);
        Locked const other(path, "BEGIN EXCLUSIVE", 150000);
        ASSERT_TRUE(other.locked);
        ASSERT_EQ(db.prepare(count_domains), 0);
        EXPECT_EQ(db.step(), SQLITE_ROW);
        EXPECT_EQ(db.finish(), 0);
        EXPECT_THAT(spy.waits, Not(IsEmpty()));
    }
    EXPECT_THAT(reports(), IsEmpty());
}

TEST_F(MailAuthBusy, WaitsInAStepWhileAReaderBlocksCommit)
{
    MailAuthConnection db;
    ASSERT_EQ(db.openForWriting(), 0);
    ASSERT_EQ(db.prepare(add_domain), 0);
    spy.forget();
    Locked const other(path, "BEGIN; SELECT count(*) FROM domains", 200000);
    ASSERT_TRUE(other.locked);
    EXPECT_EQ(db.step(), SQLITE_DONE);
    EXPECT_THAT(spy.calls, Contains("reset"));
    EXPECT_EQ(db.finish(), 0);
    EXPECT_EQ(sql(count_domains), std::vector<std::string>{"1"});
}

TEST_F(MailAuthBusy, LetsSqliteWaitFiftyMillisecondsOnlyForWriting)
{
    for (bool const writing : {false, true}) {
        MailAuthConnection db;
        ASSERT_EQ(writing ? db.openForWriting() : db.openForReading(), 0);
        ASSERT_EQ(db.prepare("PRAGMA busy_timeout"), 0);
        ASSERT_EQ(db.step(), SQLITE_ROW);
        EXPECT_EQ(db.number(0), writing ? 50 : 0);
        EXPECT_EQ(db.finish(), 0);
    }
}

TEST_F(MailAuthBusy, GivesUpADatabaseThatIsLockedForMinutes)
{
    ASSERT_THAT(sql("PRAGMA journal_mode=WAL"), ElementsAre("wal"));
    FastClock const clock;
    {
        Locked const other(path, "BEGIN IMMEDIATE", 300000);
        ASSERT_TRUE(other.locked);
        EXPECT_EQ(mailAuthSet("joe", "a.com", "pw", 0), -1);
        EXPECT_THAT(reports(),
                    Contains(Report(3, "Unable to execute the mail domain authentication "
                                       "registration query: database is locked")));
        EXPECT_GE(FastClock::seconds, 120);
        EXPECT_THAT(spy.open, IsEmpty());
    }
    std::size_t const calls = spy.waits.size();
    EXPECT_EQ(mailAuthSet("joe", "a.com", "pw", 0), -1) << "to the end of the command";
    EXPECT_EQ(spy.waits.size(), calls);
    mailAuthDBSetPath(path.c_str());
    EXPECT_EQ(mailAuthSet("joe", "a.com", "pw", 0), 0);
}

TEST_F(MailAuthBusy, CountsTheWaitsOfACommandTogether)
{
    FastClock const clock;
    time_t spent = 0;
    for (int call = 0; call < 1000 && !AccountWait::isOver(); ++call) {
        MailAuthConnection db;
        ASSERT_EQ(db.openForReading(), 0);
        spy.forget();
        spy.fault("prepare_v2", 1, SQLITE_BUSY, 1);
        bool const prepared = db.prepare(count_domains) == 0;
        EXPECT_EQ(prepared, !AccountWait::isOver());
        EXPECT_EQ(db.finish(), 0);
        spent = FastClock::seconds;
    }
    EXPECT_TRUE(AccountWait::isOver());
    EXPECT_GE(spent, 120);
}

TEST_F(MailAuthBusy, CountsWaitsInsideSqlite)
{
    FastClock const clock;
    for (int call = 0; call < 1000 && !AccountWait::isOver(); ++call) {
        MailAuthConnection db;
        ASSERT_EQ(db.openForReading(), 0);
        spy.forget();
        spy.fault("prepare_v2", 1, SQLITE_PROTOCOL, 1);
        EXPECT_EQ(db.prepare(count_domains), -1);
    }
    EXPECT_TRUE(AccountWait::isOver());
    EXPECT_THAT(spy.waits, IsEmpty());
}

TEST_F(MailAuthBusy, DoesNotCountWhatTakesLongWithoutALock)
{
    FastClock const clock;
    for (int call = 0; call < 300; ++call) {
        MailAuthConnection db;
        ASSERT_EQ(db.openForReading(), 0);
        ASSERT_EQ(db.prepare(count_domains), 0);
        EXPECT_EQ(db.finish(), 0);
    }
    EXPECT_FALSE(AccountWait::isOver());
}

TEST_F(MailAuthBusy, ReportsEachStatementOfATransactionThatCannotBegin)
{
    ASSERT_THAT(sql("PRAGMA journal_mode=WAL"), ElementsAre("wal"));
    FastClock const clock;
    Locked const other(path, "BEGIN IMMEDIATE", 300000);
    ASSERT_TRUE(other.locked);
    MailAuthTransaction transaction;
    EXPECT_EQ(mailAuthDisableDomain("a.com"), -1);
    EXPECT_EQ(transaction.commit(), 0);
    EXPECT_THAT(reports(), ElementsAre(Report(3, "Unable to prepare SQL statement for query "
                                                 "'UPDATE domains SET status=? WHERE name=?': "
                                                 "database is locked")));
}
