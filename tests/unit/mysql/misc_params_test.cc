#include "mysql/misc_params.h"

#include "mysql/mysql_error.h"
#include "support/captured_streams.h"
#include "support/child_run.h"
#include "support/panel_database_test.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <optional>

using namespace orvek::mail::restore;
using namespace orvek::mysql;
using testing::ElementsAre;
using testing::MatchesRegex;

namespace {

constexpr char no_misc[] = "Warning: MySQL Error on Mail Authentication Type query: Mysql error "
                           "1146: Table 'orv.misc' doesn't exist\n executing query, ignored\n";

class MiscParamsOnHost : public PanelDatabaseTest
{
protected:
    void SetUp() override
    {
        PanelDatabaseTest::SetUp();
        if (HasFatalFailure())
            return;
        own_conn.emplace(true);
        spy.forget();
    }
    void TearDown() override
    {
        own_conn.reset();
        PanelDatabaseTest::TearDown();
    }

    Connection& conn() { return *own_conn; }

    void setParam(std::string const& name, std::string const& value)
    {
        panel.sql("REPLACE INTO misc VALUES ('" + name + "', '" + value + "')");
    }

    std::optional<Connection> own_conn;
};

} // namespace

TEST_F(MiscParamsOnHost, AreReadByOneStatementEach)
{
    getStringMiscParam("relay", conn());
    getStringMiscParamSafe("ml_size", conn());
    getBoolMiscParamSafe("rbl", conn());
    EXPECT_THAT(spy.statements, ElementsAre("SELECT    val  FROM misc    WHERE param='relay'",
                                            "SELECT    val  FROM misc    WHERE param='ml_size'",
                                            "SELECT    val  FROM misc    WHERE param='rbl'"));
}

TEST_F(MiscParamsOnHost, GiveTheValueThatThePanelHas)
{
    setParam("relay", "closed");
    setParam("other", "open");
    EXPECT_EQ(getStringMiscParam("relay", conn()), "closed");
    EXPECT_EQ(getStringMiscParamSafe("relay", conn()), "closed");
}

TEST_F(MiscParamsOnHost, AreEmptyWhenThePanelHasNone)
{
    CapturedStreams const streams;
    EXPECT_EQ(getStringMiscParam("relay", conn()), "");
    EXPECT_EQ(getStringMiscParamSafe("relay", conn()), "");
    EXPECT_FALSE(getBoolMiscParamSafe("relay", conn()));
    panel.sql("INSERT INTO misc VALUES ('relay', NULL)");
    EXPECT_EQ(getStringMiscParam("relay", conn()), "");
    EXPECT_EQ(streams.err(), "");
}

TEST_F(MiscParamsOnHost, AreTrueForExactlyTrue)
{
    for (char const* const value : {"false", "TRUE", "True", " true", "true ", "1", "yes", ""}) {
        setParam("rbl", value);
        EXPECT_FALSE(getBoolMiscParamSafe("rbl", conn())) << value;
    }
    setParam("rbl", "true");
    EXPECT_TRUE(getBoolMiscParamSafe("rbl", conn()));
}

TEST_F(MiscParamsOnHost, AreFoundByAHostileName)
{
    for (std::string const name : {"it's", "\"", "a\\", "100%", "b\xc3\xbc", "' OR '1'='1"}) {
        conn() << "INSERT INTO misc VALUES ('" << Query::value << name.c_str() << "', 'true')"
               << Query::exec;
        EXPECT_EQ(getStringMiscParam(name, conn()), "true") << name;
        EXPECT_TRUE(getBoolMiscParamSafe(name, conn())) << name;
        panel.sql("DELETE FROM misc");
        EXPECT_EQ(getStringMiscParam(name, conn()), "") << name;
    }
}

TEST_F(MiscParamsOnHost, RaiseWhatFailsInThePlainForm)
{
    WithoutTable const without(panel, "misc");
    CapturedStreams const streams;
    EXPECT_THROW(getStringMiscParam("relay", conn()), mError);
    EXPECT_EQ(streams.err(), "");
}

TEST_F(MiscParamsOnHost, WarnOfWhatFailsInTheSafeForms)
{
    WithoutTable const without(panel, "misc");
    CapturedStreams const streams;
    EXPECT_EQ(getStringMiscParamSafe("relay", conn()), "");
    EXPECT_FALSE(getBoolMiscParamSafe("rbl", conn()));
    EXPECT_EQ(streams.err(), std::string(no_misc) + no_misc);
    EXPECT_EQ(streams.out(), streams.err());
}

TEST_F(MiscParamsOnHost, WarnOfAResultWithoutTheColumn)
{
    spy.replace("SELECT    val  FROM misc    WHERE param='rbl'", "SELECT 'true' AS value");
    CapturedStreams const streams;
    EXPECT_FALSE(getBoolMiscParamSafe("rbl", conn()));
    EXPECT_EQ(streams.err(), "Warning: MySQL Error on Mail Authentication Type query: No field "
                             "named val in result set, ignored\n");
}

TEST_F(MiscParamsOnHost, WarnOfAKilledConnection)
{
    panel.killConnections();
    CapturedStreams const streams;
    EXPECT_EQ(getStringMiscParamSafe("relay", conn()), "");
    EXPECT_THAT(streams.err(),
                MatchesRegex("Warning: MySQL Error on Mail Authentication Type query: Mysql error "
                             "[0-9]+: .*\n executing query, ignored\n"));
}

TEST_F(MiscParamsOnHost, WarnOnBothOfTheProcesssStreams)
{
    WithoutTable const without(panel, "misc");
    ChildRun const run = printedBy([&] { getBoolMiscParamSafe("rbl", conn()); });
    EXPECT_EQ(run.err, no_misc);
    EXPECT_EQ(run.out, no_misc);
}
