#include "mail/lib/accounts/mail_auth_transaction.h"

#include "mail/lib/accounts/mail_auth_domains.h"
#include "mail/lib/accounts/mail_auth_users.h"
#include "support/auth_database_test.h"
#include "support/auth_user_data.h"

#include <algorithm>

using ::testing::ElementsAre;
using ::testing::IsEmpty;
using ::testing::SizeIs;

namespace {

class MailAuthTransactionTest : public AuthDatabaseTest
{
protected:
    long count(char const* call) const
    {
        return std::count(spy.calls.begin(), spy.calls.end(), call);
    }

    // The names that a reader in another process sees.
    std::vector<std::string> names() const { return sql("SELECT name FROM users ORDER BY name"); }

    std::string const not_committed = "Unable to commit the changes of database " + path + ": ";
};

} // namespace

TEST_F(MailAuthTransactionTest, MakesAllChangesAtOnce)
{
    MailAuthTransaction transaction;
    EXPECT_EQ(mailAuthSet("joe", "a.com", "pw", 0), 0);
    EXPECT_EQ(mailAuthSet("ann", "a.com", "pw", 0), 0);
    EXPECT_THAT(names(), IsEmpty());
    EXPECT_EQ(transaction.commit(), 0);
    EXPECT_THAT(names(), ElementsAre("ann", "joe"));
}

TEST_F(MailAuthTransactionTest, UsesOneConnectionAndCompilesAStatementOnce)
{
    MailAuthTransaction transaction;
    for (char const* const name : {"a", "b", "c", "d"}) {
        EXPECT_EQ(mailAuthSet(name, "a.com", "pw", 0), 0);
        EXPECT_EQ(mailAuthClone(name, "a.com", name, "b.com"), 0);
    }
    EXPECT_EQ(transaction.commit(), 0);
    EXPECT_EQ(count("open_v2"), 1);
    EXPECT_EQ(count("close"), 1);
    EXPECT_EQ(count("prepare_v2"), 5);
    EXPECT_THAT(users(), SizeIs(8));
}

TEST_F(MailAuthTransactionTest, LetsReadsSeeTheChangesSoFar)
{
    MailAuthTransaction transaction;
    EXPECT_EQ(mailAuthSet("joe", "a.com", "pw", 0), 0);
    EXPECT_EQ(dataOf("joe", "a.com"), "joe|pw|0");
    EXPECT_EQ(transaction.commit(), 0);
}

TEST_F(MailAuthTransactionTest, CommitsWhatWasDoneWhenAChangeFails)
{
    sql("CREATE TRIGGER refuse BEFORE INSERT ON users WHEN NEW.name = 'bad' BEGIN SELECT "
        "RAISE(ABORT, 'refused'); END");
    {
        MailAuthTransaction const transaction;
        EXPECT_EQ(mailAuthSet("joe", "a.com", "pw", 0), 0);
        EXPECT_EQ(mailAuthSet("bad", "b.com", "pw", 0), -1);
    }
    EXPECT_THAT(reports(), SizeIs(1));
    EXPECT_THAT(names(), ElementsAre("joe"));
    EXPECT_THAT(domains(), ElementsAre("a.com|0", "b.com|0"));
}

TEST_F(MailAuthTransactionTest, IsPartOfTheOneAroundIt)
{
    MailAuthTransaction outer;
    {
        MailAuthTransaction inner;
        EXPECT_EQ(mailAuthSet("joe", "a.com", "pw", 0), 0);
        EXPECT_EQ(inner.commit(), 0);
    }
    EXPECT_THAT(names(), IsEmpty());
    EXPECT_EQ(outer.commit(), 0);
    EXPECT_THAT(names(), ElementsAre("joe"));
}

TEST_F(MailAuthTransactionTest, LeavesOperationsOnTheirOwnAfterwards)
{
    MailAuthTransaction transaction;
    EXPECT_EQ(transaction.commit(), 0);
    EXPECT_THAT(spy.calls, IsEmpty());
    EXPECT_EQ(mailAuthSet("joe", "a.com", "pw", 0), 0);
    EXPECT_THAT(names(), ElementsAre("joe"));
}

TEST_F(MailAuthTransactionTest, CreatesNoMissingFileForARead)
{
    unlink(path.c_str());
    MailAuthTransaction transaction;
    EXPECT_EQ(dataOf("joe", "a.com"), "-1");
    EXPECT_EQ(transaction.commit(), 0);
    EXPECT_NE(access(path.c_str(), F_OK), 0);
    EXPECT_THAT(reports(), ElementsAre(Report{3, "Unable to open database(readonly) " + path +
                                                     ": unable to open database file"}));
}

TEST_F(MailAuthTransactionTest, LetsStatementsReportADatabaseThatIsNone)
{
    writeFile(path, std::string(8192, 'x'));
    MailAuthTransaction transaction;
    EXPECT_EQ(mailAuthSet("joe", "a.com", "pw", 0), -1);
    EXPECT_EQ(transaction.commit(), 0);
    EXPECT_EQ(reports().front().second,
              notPrepared("SELECT id FROM domains WHERE name=?", ": file is not a database"));
}

TEST_F(MailAuthTransactionTest, WaitsAtItsBeginning)
{
    MailAuthTransaction transaction;
    spy.fault("exec", 1, SQLITE_BUSY, 3);
    EXPECT_EQ(mailAuthSet("joe", "a.com", "pw", 0), 0);
    EXPECT_THAT(spy.waits, ElementsAre(10000, 20000, 30000));
    EXPECT_EQ(transaction.commit(), 0);
    EXPECT_THAT(names(), ElementsAre("joe"));
}

TEST_F(MailAuthTransactionTest, FailsAChangeWhoseWaitIsRefused)
{
    MailAuthTransaction transaction;
    spy.fault("exec", 1, SQLITE_BUSY, 9);
    spy.fault("nanosleep", 2);
    EXPECT_EQ(mailAuthSet("joe", "a.com", "pw", 0), -1);
    spy.forget();
    EXPECT_EQ(mailAuthSet("ann", "a.com", "pw", 0), 0);
    EXPECT_EQ(transaction.commit(), 0);
    EXPECT_THAT(names(), ElementsAre("ann"));
    EXPECT_THAT(reports(), IsEmpty());
}

TEST_F(MailAuthTransactionTest, KeepsTheChangesBeforeAWaitThatIsRefused)
{
    MailAuthTransaction transaction;
    EXPECT_EQ(mailAuthSet("joe", "a.com", "pw", 0), 0);
    spy.forget();
    spy.fault("step", 2, SQLITE_BUSY, 9);
    spy.fault("nanosleep", 1);
    EXPECT_EQ(mailAuthSet("ann", "a.com", "pw", 0), -1);
    EXPECT_EQ(transaction.commit(), 0);
    EXPECT_THAT(names(), ElementsAre("joe"));
}

TEST_F(MailAuthTransactionTest, ReportsACommitThatFails)
{
    MailAuthTransaction transaction;
    EXPECT_EQ(mailAuthSet("joe", "a.com", "pw", 0), 0);
    spy.forget();
    spy.fault("exec", 1, SQLITE_FULL);
    EXPECT_EQ(transaction.commit(), -1);
    EXPECT_THAT(reports(), ElementsAre(Report{3, not_committed + "not an error"}));
    EXPECT_THAT(names(), IsEmpty());
}

TEST_F(MailAuthTransactionTest, ReportsACommitWhoseWaitIsRefused)
{
    MailAuthTransaction transaction;
    EXPECT_EQ(mailAuthSet("joe", "a.com", "pw", 0), 0);
    spy.forget();
    spy.fault("exec", 1, SQLITE_BUSY, 9);
    spy.fault("nanosleep", 1);
    EXPECT_EQ(transaction.commit(), -1);
    EXPECT_THAT(reports(), SizeIs(1));
    EXPECT_THAT(names(), IsEmpty());
}

TEST_F(MailAuthTransactionTest, TellsThatADatabaseTookItsChangesBack)
{
    sql("CREATE TRIGGER refuse BEFORE INSERT ON users WHEN NEW.name = 'bad' BEGIN SELECT "
        "RAISE(ROLLBACK, 'refused'); END");
    MailAuthTransaction transaction;
    EXPECT_EQ(mailAuthSet("joe", "a.com", "pw", 0), 0);
    EXPECT_EQ(mailAuthSet("bad", "a.com", "pw", 0), -1);
    EXPECT_EQ(transaction.commit(), -1);
    EXPECT_EQ(reports().back().second, not_committed + "cannot commit - no transaction is active");
}
