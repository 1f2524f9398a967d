#include "mysql/result.h"

#include "mysql/connection.h"
#include "mysql/mysql_error.h"
#include "support/panel_database_test.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <optional>

using namespace orvek::mysql;
using testing::ElementsAre;

namespace {

bool lengths_are_lost = false;

} // namespace

extern "C" {

unsigned long* __real_mysql_fetch_lengths(MYSQL_RES* result);

unsigned long* __wrap_mysql_fetch_lengths(MYSQL_RES* result)
{
    static unsigned long lost[4] = {};
    return lengths_are_lost ? lost : __real_mysql_fetch_lengths(result);
}

} // extern "C"

namespace {

class ResultOnHost : public PanelDatabaseTest
{
protected:
    void SetUp() override
    {
        PanelDatabaseTest::SetUp();
        if (!HasFatalFailure())
            conn.emplace(true);
    }
    void TearDown() override
    {
        conn.reset();
        PanelDatabaseTest::TearDown();
    }

    Result resultOf(std::string const& statement)
    {
        *conn << statement.c_str();
        return *conn << Query::fetch;
    }

    std::optional<Connection> conn;
    Result::row_t row;
};

std::string text(Field const& field)
{
    return field;
}

std::vector<std::string> names(Result::row_t const& row)
{
    std::vector<std::string> all;
    for (auto const& [name, field] : row)
        all.push_back(name);
    return all;
}

} // namespace

TEST_F(ResultOnHost, GivesTheRowsInTheServersOrderAndThenFalse)
{
    Result result = resultOf("SELECT 'a' AS x UNION ALL SELECT 'b' UNION ALL SELECT 'c'");
    for (char const* const expected : {"a", "b", "c"}) {
        ASSERT_TRUE(result.fetch(&row));
        EXPECT_EQ(text(row["x"]), expected);
    }
    EXPECT_FALSE(result.fetch(&row));
    EXPECT_FALSE(result.fetch(&row));
}

TEST_F(ResultOnHost, LeavesTheRowAsItWasAtTheEnd)
{
    Result result = resultOf("SELECT 'a' AS x");
    result.fetch(&row);
    EXPECT_FALSE(result.fetch(&row));
    EXPECT_EQ(text(row["x"]), "a");
}

TEST_F(ResultOnHost, IsAtItsEndAtOnceWithoutRows)
{
    Result result = resultOf("SELECT param FROM misc");
    EXPECT_FALSE(result.fetch(&row));
    EXPECT_TRUE(row.empty());
}

TEST_F(ResultOnHost, OrdersTheColumnsByName)
{
    resultOf("SELECT 1 AS b, 2 AS c, 3 AS a, 4 AS B").fetch(&row);
    EXPECT_THAT(names(row), ElementsAre("B", "a", "b", "c"));
    EXPECT_EQ(static_cast<long>(row["a"]), 3);
}

TEST_F(ResultOnHost, EmptiesTheRowBeforeItFillsIt)
{
    resultOf("SELECT 1 AS a").fetch(&row);
    resultOf("SELECT 2 AS b").fetch(&row);
    EXPECT_THAT(names(row), ElementsAre("b"));
}

TEST_F(ResultOnHost, TakesATextByItsLength)
{
    resultOf("SELECT CONCAT('a', CHAR(0), 'b') AS x, CHAR(0) AS y").fetch(&row);
    EXPECT_EQ(text(row["x"]), std::string("a\0b", 3));
    EXPECT_EQ(text(row["y"]), std::string("\0", 1));
}

TEST_F(ResultOnHost, ReadsATextWithoutALengthToItsEnd)
{
    lengths_are_lost = true;
    resultOf("SELECT 'text' AS x, NULL AS n, '' AS e").fetch(&row);
    lengths_are_lost = false;
    EXPECT_EQ(text(row["x"]), "text");
    EXPECT_EQ(text(row["n"]), "");
    EXPECT_EQ(text(row["e"]), "");
}

TEST_F(ResultOnHost, ReadsNullAndTheEmptyTextAsTheEmptyText)
{
    resultOf("SELECT NULL AS n, '' AS e").fetch(&row);
    EXPECT_EQ(text(row["n"]), "");
    EXPECT_EQ(text(row["e"]), "");
    EXPECT_THROW(static_cast<void>(static_cast<int>(row["n"])), mError);
}

TEST_F(ResultOnHost, RaisesForADuplicateColumnAndGoesOnAfterIt)
{
    Result result = resultOf("SELECT 1 AS a, 2 AS a UNION ALL SELECT 3, 4");
    for (int i = 0; i < 2; ++i)
        try {
            result.fetch(&row);
            ADD_FAILURE() << "fetched";
        } catch (mError const& e) {
            EXPECT_STREQ(e.what(), "duplicated field a in query");
        }
    EXPECT_FALSE(result.fetch(&row));
}

TEST_F(ResultOnHost, TellsColumnsThatAreRenamedApart)
{
    resultOf("SELECT 1 AS a, 2 AS `a ` FROM dual").fetch(&row);
    EXPECT_EQ(row.size(), 2U);
}

TEST_F(ResultOnHost, RaisesForAColumnThatWasNotSelected)
{
    resultOf("SELECT 'v' AS val").fetch(&row);
    try {
        static_cast<void>(row["param"]);
        ADD_FAILURE() << "found";
    } catch (mError const& e) {
        EXPECT_STREQ(e.what(), "No field named param in result set");
    }
    EXPECT_EQ(row.size(), 1U);
}

TEST_F(ResultOnHost, StandsBesideOthersOfItsConnection)
{
    Result outer = resultOf("SELECT 'a' AS x UNION ALL SELECT 'b'");
    std::vector<std::string> seen;
    while (outer.fetch(&row)) {
        Result inner = resultOf("SELECT 1 AS y UNION ALL SELECT 2");
        Result::row_t inner_row;
        while (inner.fetch(&inner_row))
            seen.push_back(text(row["x"]) + text(inner_row["y"]));
    }
    EXPECT_THAT(seen, ElementsAre("a1", "a2", "b1", "b2"));
}

TEST_F(ResultOnHost, IsFreedWhoeverHasIt)
{
    {
        std::optional<Result> kept;
        {
            Result result = resultOf("SELECT 'a' AS x");
            kept = std::move(result);
        }
        EXPECT_EQ(spy.results.size(), 1U);
        EXPECT_TRUE(kept->fetch(&row));
        EXPECT_EQ(text(row["x"]), "a");
    }
    EXPECT_EQ(spy.results.size(), 0U);
}
