#include "restore/row_cycle.h"

#include "walker_test.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

using namespace orvek::mail::restore;
using orvek::mysql::Result;
using testing::ElementsAre;
using testing::IsEmpty;

namespace {

class RowCycleOnHost : public WalkerTest
{
protected:
    // Notes column a of each row, and fails on "bad".
    bool cycle(std::string const& query)
    {
        CapturedStreams const streams;
        bool const run = forEachRow(conn(), "the cycle", query, [this](Result::row_t const& row) {
            std::string const& value = row["a"];
            if (value == "bad")
                throw std::runtime_error("boom");
            rows.push_back(value);
        });
        warnings = streams.err();
        return run;
    }
    std::optional<std::string> first(std::string const& query)
    {
        CapturedStreams const streams;
        auto const value = firstValue(conn(), "the value", query, "a");
        warnings = streams.err();
        return value;
    }

    std::vector<std::string> rows;
    std::string warnings;
};

} // namespace

TEST_F(RowCycleOnHost, HandsEachRowOn)
{
    EXPECT_TRUE(cycle("SELECT 'x' AS a UNION ALL SELECT 'y'"));
    EXPECT_THAT(rows, ElementsAre("x", "y"));
    EXPECT_TRUE(cycle("SELECT param AS a FROM misc"));
    EXPECT_EQ(warnings, "");
}

TEST_F(RowCycleOnHost, IsFalseForAQueryThatFailed)
{
    EXPECT_FALSE(cycle("SELECT 1 AS a FROM nowhere"));
    EXPECT_EQ(warnings, queryWarning("the cycle", "nowhere"));
    EXPECT_FALSE(cycle("DELETE FROM misc"));
    EXPECT_EQ(warnings, "Warning: MySQL Query error on the cycle: Unknown error\n fetching result, "
                        "ignored\n");
}

TEST_F(RowCycleOnHost, GoesOnBehindARowThatFailed)
{
    EXPECT_TRUE(cycle("SELECT 'x' AS a UNION ALL SELECT 'bad' UNION ALL SELECT 'y'"));
    EXPECT_THAT(rows, ElementsAre("x", "y"));
    EXPECT_EQ(warnings, rowWarning("the cycle", "boom"));
}

TEST_F(RowCycleOnHost, EndsWhenNoRowCanBeFetched)
{
    EXPECT_TRUE(cycle("SELECT 1 AS a, 2 AS a UNION ALL SELECT 3, 4"));
    EXPECT_THAT(rows, IsEmpty());
    EXPECT_EQ(warnings, rowWarning("the cycle", "duplicated field a in query") +
                            rowWarning("the cycle", "duplicated field a in query"));
}

TEST_F(RowCycleOnHost, GivesTheFirstRowsValueAlone)
{
    EXPECT_EQ(first("SELECT 'x' AS a UNION ALL SELECT 'y'"), "x");
    EXPECT_EQ(first("SELECT NULL AS a"), "");
    EXPECT_EQ(warnings, "");
}

TEST_F(RowCycleOnHost, GivesNoValueWithoutARowAndWarnsOfNothing)
{
    EXPECT_EQ(first("SELECT param AS a FROM misc"), std::nullopt);
    EXPECT_EQ(warnings, "");
}

TEST_F(RowCycleOnHost, GivesNoValueThatCannotBeRead)
{
    EXPECT_EQ(first("SELECT 1 AS a FROM nowhere"), std::nullopt);
    EXPECT_EQ(warnings, queryWarning("the value", "nowhere"));
    EXPECT_EQ(first("SELECT 1 AS b UNION ALL SELECT 2"), std::nullopt);
    EXPECT_EQ(warnings, rowWarning("the value", "No field named a in result set"));
}
