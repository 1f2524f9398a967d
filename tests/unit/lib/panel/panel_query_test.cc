#include "lib/panel/panel_query.h"

#include "support/child_run.h"
#include "support/panel_database_test.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <cerrno>
#include <string>

using ::testing::ElementsAre;
using ::testing::IsEmpty;
using ::testing::SizeIs;

namespace {

using PanelQueryOnHost = PanelDatabaseTest;

} // namespace

TEST_F(PanelQueryOnHost, OwnsTheConnectionThatItMade)
{
    {
        PanelQuery const query(nullptr);
        ASSERT_TRUE(query.connected());
        EXPECT_THAT(spy.open, ElementsAre(query.connection()));
    }
    EXPECT_THAT(spy.open, IsEmpty());
}

TEST_F(PanelQueryOnHost, LeavesTheCallersConnectionOpen)
{
    OpenMysql const my(db_connect());
    {
        PanelQuery const query(my.get());
        EXPECT_EQ(query.connection(), my.get());
    }
    EXPECT_THAT(spy.open, SizeIs(1));
}

TEST_F(PanelQueryOnHost, IsNotConnectedWithoutAServer)
{
    panel.stop();
    auto const run = inChild([] { return PanelQuery(nullptr).connected() ? 1 : 0; });
    EXPECT_EQ(run.status, 0);
}

TEST_F(PanelQueryOnHost, FormsAStatement)
{
    PanelQuery query(nullptr);
    ASSERT_TRUE(query.run_with("SELECT '?', \"?\"", {"a", "2"}));
    EXPECT_STREQ(query.first_value(1), "2");
    EXPECT_EQ(spy.statements.back(), "SELECT 'a', \"2\"");
}

TEST_F(PanelQueryOnHost, TakesATextForWhatItIs)
{
    PanelQuery query(nullptr);
    for (char const* const text : {"o'brien", "a\"b", "a\\", "?", "%s", "x' OR '1'='1", "a\nb"}) {
        ASSERT_TRUE(query.run_with("SELECT '?', \"?\"", {text, text})) << text;
        EXPECT_STREQ(query.first_value(0), text);
        EXPECT_STREQ(query.first_value(1), text);
    }
}

TEST_F(PanelQueryOnHost, HasTheResultOfTheLastStatement)
{
    PanelQuery query(nullptr);
    ASSERT_TRUE(query.run("SELECT 'a'"));
    EXPECT_TRUE(query.has_row());
    ASSERT_TRUE(query.run("SELECT val FROM misc"));
    EXPECT_FALSE(query.has_row());
    EXPECT_EQ(query.first_value(), nullptr);
    EXPECT_THAT(spy.results, SizeIs(1));
}

TEST_F(PanelQueryOnHost, FailsWithoutAResult)
{
    PanelQuery query(nullptr);
    EXPECT_FALSE(query.run("SELECT * FROM gone"));
    EXPECT_STREQ(query.error(), "Table 'orv.gone' doesn't exist");
    EXPECT_FALSE(query.run("SET @x = 1"));
    EXPECT_STREQ(query.error(), "");
}

TEST_F(PanelQueryOnHost, HasNoValueForNullOrAMissingColumn)
{
    PanelQuery query(nullptr);
    ASSERT_TRUE(query.run("SELECT NULL, 'b'"));
    EXPECT_EQ(query.first_value(0), nullptr);
    EXPECT_EQ(query.first_value(2), nullptr);
}

TEST_F(PanelQueryOnHost, HasTheValuesOfTheFirstRowAtEachCall)
{
    PanelQuery query(nullptr);
    ASSERT_TRUE(query.run("SELECT 'a', 'b' UNION ALL SELECT 'c', 'd'"));
    EXPECT_STREQ(query.first_value(1), "b");
    EXPECT_STREQ(query.first_value(0), "a");
    EXPECT_STREQ(query.first_value(0), "a");
}

TEST_F(PanelQueryOnHost, CopiesAValueAndCutsIt)
{
    PanelQuery query(nullptr);
    char value[panel_value_size] = "as it was";
    ASSERT_TRUE(query.run("SELECT NULL"));
    EXPECT_EQ(query.copy_first(value), nullptr);
    EXPECT_STREQ(value, "as it was");
    ASSERT_TRUE(query.run("SELECT REPEAT('x', 9000)"));
    EXPECT_EQ(query.copy_first(value), value);
    EXPECT_EQ(value, std::string(panel_value_size - 1, 'x'));
}

TEST_F(PanelQueryOnHost, KeepsErrnoUnlessTheConnectionIsLost)
{
    errno = ENOSPC;
    {
        PanelQuery query(nullptr);
        EXPECT_TRUE(query.run("SELECT 1"));
        EXPECT_FALSE(query.run("SELECT * FROM gone"));
    }
    EXPECT_EQ(errno, ENOSPC);
}
