#include "mail/lib/accounts/mail_auth_connection.h"

#include "support/auth_database_test.h"

using ::testing::ElementsAre;
using ::testing::Pair;

namespace {

constexpr char count_domains[] = "SELECT count(*) FROM domains";
constexpr char add_domain[] = "INSERT INTO domains (name) VALUES ('example.com')";

class MailAuthConnectionTest : public AuthDatabaseTest
{
};

} // namespace

TEST_F(MailAuthConnectionTest, GivesTheTextOfAFailedScript)
{
    MailAuthConnection db;
    ASSERT_EQ(db.openForWriting(), 0);
    char* error = nullptr;
    EXPECT_EQ(db.execute("DELETE FROM nowhere", &error), SQLITE_ERROR);
    EXPECT_STREQ(error, "no such table: nowhere");
    sqlite3_free(error);
    EXPECT_EQ(db.finish(), 0);
}

TEST_F(MailAuthConnectionTest, CannotChangeWhatWasOpenedForReading)
{
    MailAuthConnection db;
    ASSERT_EQ(db.openForReading(), 0);
    ASSERT_EQ(db.prepare(add_domain), 0);
    EXPECT_EQ(db.step(), SQLITE_READONLY);
    EXPECT_EQ(db.failure("failed: %s", db.message()), -1);
    EXPECT_THAT(reports(), ElementsAre(Pair(3, "failed: attempt to write a readonly database")));
}

TEST_F(MailAuthConnectionTest, ReportsADirectoryThatDoesNotExist)
{
    std::string const nowhere = directory / "no/passwd.db";
    mailAuthDBSetPath(nowhere.c_str());
    MailAuthConnection db;
    EXPECT_EQ(db.openForWriting(), -1);
    EXPECT_EQ(db.openForReading(), -1);
    EXPECT_THAT(reports(), ElementsAre(Pair(3, "Unable to open database " + nowhere +
                                                   ": unable to open database file"),
                                       Pair(3, "Unable to open database(readonly) " + nowhere +
                                                   ": unable to open database file")));
    EXPECT_FALSE(db.isOpen());
}

TEST_F(MailAuthConnectionTest, HasAGeneralMessageWithoutAConnection)
{
    spy.fault("open_v2", 1, SQLITE_NOMEM, 2);
    MailAuthConnection db;
    EXPECT_EQ(db.openForWriting(), -1);
    EXPECT_EQ(db.openForReading(), -1);
    EXPECT_THAT(
        reports(),
        ElementsAre(Pair(3, "Unable to open database " + path + ": general DB errror"),
                    Pair(3, "Unable to open database(readonly) " + path + ": general DB errror")));
}

TEST_F(MailAuthConnectionTest, ReportsAndClosesWhenAPrepareFails)
{
    MailAuthConnection db;
    ASSERT_EQ(db.openForReading(), 0);
    EXPECT_EQ(db.prepare("SELECT '100%s'"), 0);
    db.finalize();
    EXPECT_EQ(db.prepare("SELECT '%s%n' FROM nowhere"), -1);
    EXPECT_THAT(reports(), ElementsAre(Pair(3, "Unable to prepare SQL statement for query "
                                               "'SELECT '%s%n' FROM nowhere': no such table: "
                                               "nowhere")));
    EXPECT_FALSE(db.isOpen());
    EXPECT_FALSE(db.isAbandoned());
    EXPECT_EQ(db.finish(), 0);
}

TEST_F(MailAuthConnectionTest, ReportsAFileThatIsNoDatabase)
{
    writeFile(path, std::string(4096, 'x'));
    MailAuthConnection db;
    ASSERT_EQ(db.openForWriting(), 0);
    EXPECT_EQ(db.prepare(count_domains), -1);
    EXPECT_THAT(reports(),
                ElementsAre(Pair(3, "Unable to prepare SQL statement for query 'SELECT count(*) "
                                    "FROM domains': file is not a database")));
}

TEST_F(MailAuthConnectionTest, CreatesAMissingFileForWritingOnly)
{
    unlink(path.c_str());
    MailAuthConnection reading;
    EXPECT_EQ(reading.openForReading(), -1);
    EXPECT_NE(access(path.c_str(), F_OK), 0);
    MailAuthConnection writing;
    ASSERT_EQ(writing.openForWriting(), 0);
    EXPECT_EQ(writing.prepare(add_domain), -1);
    EXPECT_EQ(readFile(path), "");
    EXPECT_EQ(reports().back().second, "Unable to prepare SQL statement for query 'INSERT INTO "
                                       "domains (name) VALUES ('example.com')': no such table: "
                                       "domains");
}

TEST_F(MailAuthConnectionTest, KeepsErrnoThroughReportAndClose)
{
    for (bool const closing : {false, true}) {
        MailAuthConnection db;
        ASSERT_EQ(db.openForReading(), 0);
        ASSERT_EQ(db.prepare(count_domains), 0);
        spy.fault("close", 1, SQLITE_BUSY, 3);
        errno = ENOSPC;
        EXPECT_EQ(closing ? db.failure("text") : db.stepFailure("text"), -1);
        EXPECT_EQ(errno, ENOSPC);
        EXPECT_EQ(db.isOpen(), !closing);
        EXPECT_EQ(db.finish(), 0);
    }
}

TEST_F(MailAuthConnectionTest, ClosesWhatAnExceptionLeavesOpen)
{
    try {
        MailAuthConnection db;
        ASSERT_EQ(db.openForReading(), 0);
        ASSERT_EQ(db.prepare(count_domains), 0);
        throw 1;
    } catch (int) {
        EXPECT_THAT(spy.calls, ElementsAre("open_v2", "prepare_v2", "finalize", "close"));
    }
}

TEST_F(MailAuthConnectionTest, HandsConnectionAndStatementOver)
{
    MailAuthConnection first;
    ASSERT_EQ(first.openForReading(), 0);
    ASSERT_EQ(first.prepare(count_domains), 0);
    sqlite3* db = nullptr;
    sqlite3_stmt* statement = nullptr;
    first.release(&db, &statement);
    EXPECT_FALSE(first.isOpen());
    EXPECT_EQ(first.finish(), 0);
    MailAuthConnection second(db, statement);
    EXPECT_EQ(second.step(), SQLITE_ROW);
    EXPECT_EQ(second.finish(), 0);
    EXPECT_THAT(spy.calls, ElementsAre("open_v2", "prepare_v2", "step", "finalize", "close"));
}

TEST_F(MailAuthConnectionTest, BindsNullForAMissingText)
{
    MailAuthConnection db;
    ASSERT_EQ(db.openForReading(), 0);
    ASSERT_EQ(db.prepare("SELECT ? IS NULL, ?, ?"), 0);
    EXPECT_TRUE(db.bind(1, nullptr));
    EXPECT_TRUE(db.bind(2, "local@domain", 5));
    EXPECT_TRUE(db.bind(3, 1LL << 40));
    ASSERT_EQ(db.step(), SQLITE_ROW);
    EXPECT_EQ(db.number(0), 1);
    EXPECT_STREQ(db.text(1), "local");
    EXPECT_EQ(db.number(2), 1LL << 40);
    EXPECT_EQ(db.finish(), 0);
}
