#include "mysql/connection.h"

#include "mysql/mysql_error.h"
#include "support/allocation_faults.h"
#include "support/captured_streams.h"
#include "support/child_run.h"
#include "support/panel_database_test.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <cerrno>
#include <cfloat>
#include <climits>
#include <memory>
#include <new>

using namespace orvek::mysql;
using testing::ElementsAre;
using testing::EndsWith;
using testing::MatchesRegex;
using testing::StartsWith;

namespace {

template<class Code>
std::string raisedBy(Code const& code)
{
    try {
        code();
    } catch (mError const& e) {
        return e.what();
    }
    return "nothing was raised";
}

// Every byte that a C string can hold.
std::string allBytes()
{
    std::string bytes;
    for (int byte = 1; byte < 256; ++byte)
        bytes += static_cast<char>(byte);
    return bytes;
}

class ConnectionOnHost : public PanelDatabaseTest
{
protected:
    void SetUp() override
    {
        PanelDatabaseTest::SetUp();
        if (HasFatalFailure())
            return;
        conn.open();
        spy.forget();
    }
    void TearDown() override
    {
        conn_owner.reset();
        PanelDatabaseTest::TearDown();
    }

    // The statement as it was built.
    std::string statement()
    {
        spy.statements.clear();
        EXPECT_THROW(conn << Query::exec, mError);
        return spy.statements.empty() ? "none" : spy.statements.back();
    }

    // The first column of the first row.
    std::string fetched()
    {
        Result result = conn << Query::fetch;
        Result::row_t row;
        return result.fetch(&row) ? row.begin()->second : std::string("no row");
    }

    std::unique_ptr<Connection> conn_owner = std::make_unique<Connection>(false);
    Connection& conn = *conn_owner;
};

} // namespace

TEST(ConnectionEscapeName, DoublesEachBacktickAndNothingElse)
{
    EXPECT_EQ(Connection::escape_name("plain", 0), "plain");
    EXPECT_EQ(Connection::escape_name("`", 0), "``");
    EXPECT_EQ(Connection::escape_name("a`b``c", 0), "a``b````c");
    EXPECT_EQ(Connection::escape_name("'\"\\%\xff\n", 0), "'\"\\%\xff\n");
    EXPECT_EQ(Connection::escape_name("", 0), "");
}

TEST(ConnectionEscapeName, TakesTheLengthItIsGiven)
{
    EXPECT_EQ(Connection::escape_name("a`b`c", 3), "a``b");
    EXPECT_EQ(Connection::escape_name("a\0`", 3), std::string("a\0``", 4));
}

TEST(ConnectionTest, PrintsEachExpressionAndItsValueOnStandardError)
{
    CapturedStreams const streams;
    Connection::test();
    EXPECT_THAT(streams.err(),
                MatchesRegex("([^\n]+/connection\\.cc\\([0-9]+\\) [^\n]+ = [^\n]*\n)+"));
    EXPECT_NE(streams.err().find(") connection.escape(\"a\\0b\", 3) = a\\0b\n"), std::string::npos);
    EXPECT_NE(streams.err().find(") escape_name(\"back`tick``s\", 0) = back``tick````s\n"),
              std::string::npos);
    EXPECT_EQ(streams.out(), "");
    EXPECT_TRUE(mysqlSpy().open.empty());
}

TEST(ConnectionTest, RaisesBadAllocWithoutAHandle)
{
    mysqlSpy().forget();
    mysqlSpy().fault("init", 1);
    EXPECT_THROW(Connection::test(), std::bad_alloc);
    mysqlSpy().forget();
}

TEST(Connection, FailsToRunAStatementBeforeItIsOpen)
{
    Connection conn(false);
    conn << "SELECT 1";
    EXPECT_EQ(raisedBy([&] { conn << Query::exec; }), "Unknown error\n executing query");
}

TEST_F(ConnectionOnHost, ConnectsAtOnceWhenItIsTold)
{
    Connection const other(true);
    EXPECT_EQ(spy.connects.size(), 1U);
    EXPECT_EQ(spy.open.size(), 2U);
}

TEST_F(ConnectionOnHost, ConnectsLaterWhenItIsNot)
{
    Connection other(false);
    EXPECT_EQ(spy.connects.size(), 0U);
    other.open();
    EXPECT_EQ(spy.connects.size(), 1U);
}

TEST_F(ConnectionOnHost, IsOpenedOnce)
{
    conn.open();
    EXPECT_EQ(spy.connects.size(), 0U);
    EXPECT_EQ(spy.statements.size(), 0U);
}

TEST_F(ConnectionOnHost, IsClosedWithItsLife)
{
    EXPECT_EQ(spy.open.size(), 1U);
    conn_owner.reset();
    EXPECT_EQ(spy.open.size(), 0U);
}

TEST_F(ConnectionOnHost, OpensLaterAfterAStoppedServerRefusedIt)
{
    panel.stop();
    Connection other(false);
    ChildRun const run = printedBy([&] { std::cout << raisedBy([&] { other.open(); }); });
    EXPECT_THAT(run.err, StartsWith("Unable to connect to Orvek Database: Can't connect "));
    EXPECT_THAT(run.out, EndsWith("connection failed"));
    EXPECT_THROW(other.open(), mError);
    EXPECT_THROW(Connection(true), mError);
    panel.start();
    other.open();
    other << "SELECT 1";
    static_cast<void>(other << Query::fetch);
}

TEST_F(ConnectionOnHost, FailsToOpenWithAWrongPassword)
{
    panel.writePassword("wrong\n");
    ChildRun const run =
        printedBy([&] { std::cout << raisedBy([] { Connection const other(true); }); });
    EXPECT_THAT(run.err,
                StartsWith("Unable to connect to Orvek Database: Access denied for user "));
    EXPECT_THAT(run.out, EndsWith("connection failed"));
    EXPECT_EQ(run.err.find("wrong"), std::string::npos);
}

TEST_F(ConnectionOnHost, PutsWhatIsInsertedTogether)
{
    conn << "a" << 1 << "b" << 2.5 << "c";
    EXPECT_EQ(statement(), "a1b2.500000c");
}

TEST_F(ConnectionOnHost, FormatsEveryNumber)
{
    conn << INT_MIN << " " << INT_MAX << " " << -0.0000004 << " " << 1e300;
    char expected[400];
    snprintf(expected, sizeof expected, "%d %d %f %f", INT_MIN, INT_MAX, -0.0000004, 1e300);
    EXPECT_EQ(statement(), expected);
    conn << DBL_MAX;
    EXPECT_EQ(statement().size(), 309U + 7U);
}

TEST_F(ConnectionOnHost, EscapesOnlyTheNextStringAsAValue)
{
    conn << "it's " << Query::value << "it's"
         << " it's";
    EXPECT_EQ(statement(), "it's it\\'s it's");
}

TEST_F(ConnectionOnHost, EscapesOnlyTheNextStringAsAName)
{
    conn << "`" << Query::name << "a`b"
         << "`c";
    EXPECT_EQ(statement(), "`a``b`c");
}

TEST_F(ConnectionOnHost, LetsANumberUseTheModeUp)
{
    conn << Query::value << 1 << "'" << Query::name << 1.0 << "`";
    EXPECT_EQ(statement(), "1'1.000000`");
}

TEST_F(ConnectionOnHost, LetsTheLastModeCount)
{
    conn << Query::value << Query::name << "'`";
    EXPECT_EQ(statement(), "'``");
}

TEST_F(ConnectionOnHost, LeavesPercentSignsAndBytesAbove127InAValue)
{
    EXPECT_EQ(conn.escape("100%_ \xff\xc3\xbc", 0), "100%_ \xff\xc3\xbc");
    EXPECT_EQ(conn.escape("'\"\\\n\r\x1a", 0), "\\'\\\"\\\\\\n\\r\\Z");
    EXPECT_EQ(conn.escape("", 0), "");
}

TEST_F(ConnectionOnHost, EscapesALengthThatHoldsNullBytes)
{
    EXPECT_EQ(conn.escape("a\0'b", 3), "a\\0\\'");
}

TEST_F(ConnectionOnHost, BringsEveryByteToTheServerAndBack)
{
    std::string const bytes = allBytes();
    conn << "SELECT BINARY '" << Query::value << bytes.c_str() << "'";
    EXPECT_EQ(fetched(), bytes);
}

TEST_F(ConnectionOnHost, BringsAHostileValueToTheRowThatHoldsIt)
{
    for (char const* const name :
         {"it's", "\"", "a\\", "\\'", "100%", "b\xc3\xbc\xc3\xb6", "'; DROP TABLE misc; -- "}) {
        conn << "INSERT INTO misc VALUES ('" << Query::value << name << "', '" << Query::value
             << name << "')" << Query::exec;
        conn << "SELECT val FROM misc WHERE param='" << Query::value << name << "'";
        EXPECT_EQ(fetched(), name);
    }
}

TEST_F(ConnectionOnHost, FindsATableByAHostileName)
{
    char const name[] = "odd`'\" \\ 100% \xc3\xbc";
    conn << "CREATE TABLE `" << Query::name << name << "` (a INT)" << Query::exec;
    conn << "SELECT COUNT(*) FROM `" << Query::name << name << "`";
    EXPECT_EQ(fetched(), "0");
    conn << "DROP TABLE `" << Query::name << name << "`" << Query::exec;
}

TEST_F(ConnectionOnHost, SpoilsAStatementWithANullString)
{
    char const* const null = nullptr;
    conn << "SELECT " << null << "1";
    EXPECT_EQ(statement(), "SELECT ");
    conn << Query::value << null;
    EXPECT_EQ(statement(), "");
    conn << "it's";
    EXPECT_EQ(statement(), "it's");
}

TEST_F(ConnectionOnHost, UsesTheModeUpWithANullString)
{
    conn << Query::name << static_cast<char const*>(nullptr);
    EXPECT_THROW(conn << Query::exec, mError);
    conn << "`";
    EXPECT_EQ(statement(), "`");
}

TEST_F(ConnectionOnHost, RaisesBadAllocWithoutMemoryToEscapeIn)
{
    ArrayAllocationFailure const failure;
    EXPECT_THROW(conn << Query::value << "x", std::bad_alloc);
    EXPECT_THROW(conn.escape("x", 1), std::bad_alloc);
}

TEST_F(ConnectionOnHost, IsReadyForTheNextStatementAfterOneThatFailed)
{
    conn << "SELECT nonsense FROM nowhere" << Query::value;
    EXPECT_EQ(raisedBy([&] { conn << Query::exec; }),
              "Mysql error 1146: Table 'orv.nowhere' doesn't exist\n executing query");
    conn << "SELECT 'a'";
    EXPECT_EQ(fetched(), "a");
}

TEST_F(ConnectionOnHost, SaysNothingOfTheStatementThatFailed)
{
    conn << "SELECT 1 AS secret FROM nowhere";
    EXPECT_EQ(raisedBy([&] { static_cast<void>(conn << Query::fetch); }),
              "Mysql error 1146: Table 'orv.nowhere' doesn't exist\n executing query");
}

TEST_F(ConnectionOnHost, RunsAStatementThatGivesNoRows)
{
    conn << "INSERT INTO misc VALUES ('a', 'b')" << Query::exec;
    EXPECT_THAT(panel.sql("SELECT * FROM misc"), ElementsAre("a|b"));
}

TEST_F(ConnectionOnHost, FailsToFetchFromAStatementThatGivesNoRows)
{
    conn << "INSERT INTO misc VALUES ('a', 'b')";
    EXPECT_EQ(raisedBy([&] { static_cast<void>(conn << Query::fetch); }),
              "Unknown error\n fetching result");
    EXPECT_THAT(panel.sql("SELECT * FROM misc"), ElementsAre("a|b"));
}

TEST_F(ConnectionOnHost, FailsToFetchAResultThatDoesNotArrive)
{
    spy.fault("store_result", 1);
    conn << "SELECT 1";
    EXPECT_EQ(raisedBy([&] { static_cast<void>(conn << Query::fetch); }),
              "Unknown error\n fetching result");
}

TEST_F(ConnectionOnHost, FailsWithTheServersErrorOnceItWasKilled)
{
    panel.killConnections();
    conn << "SELECT 1";
    EXPECT_THAT(raisedBy([&] { static_cast<void>(conn << Query::fetch); }),
                MatchesRegex("Mysql error (1927|2006|2013): .*\n executing query"));
}

TEST_F(ConnectionOnHost, KeepsErrnoWhenItIsClosed)
{
    panel.killConnections();
    errno = ENOTDIR;
    conn_owner.reset();
    EXPECT_EQ(errno, ENOTDIR);
}
