#include "lib/panel/get_param.h"

#include "lib/panel/dbconnect.h"
#include "support/child_run.h"
#include "support/panel_database_test.h"
#include "support/report.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <cerrno>
#include <functional>
#include <string>

using ::testing::IsEmpty;

namespace {

constexpr char no_server[] = "Unable to connect to Orvek Database: Can't connect to local server "
                             "through socket '/run/mysqld/mysqld.sock' (2)";

class GetParamOnHost : public PanelDatabaseTest
{
protected:
    // The output on both streams of a call that must return null.
    static std::string reportOf(std::function<char const*()> const& call)
    {
        auto const run = inChild([&] { return call() ? 1 : 0; });
        EXPECT_EQ(run.status, 0) << "not null";
        EXPECT_EQ(run.out, run.err);
        return run.err;
    }

    // The value, or "(null)".
    static std::string textOf(char const* value) { return value ? value : "(null)"; }
};

} // namespace

TEST_F(GetParamOnHost, ReadsAParameterOfThePanel)
{
    panel.sql("INSERT INTO misc VALUES ('colour', 'green'), ('other', 'red')");
    EXPECT_EQ(textOf(get_param("colour", nullptr)), "green");
    EXPECT_EQ(spy.statements.back(), "select val from misc where param='colour'");
    EXPECT_THAT(spy.open, IsEmpty());
}

TEST_F(GetParamOnHost, ReadsOnTheCallersConnectionAndLeavesItOpen)
{
    panel.sql("INSERT INTO misc VALUES ('colour', 'green')");
    OpenMysql const my(db_connect());
    EXPECT_EQ(textOf(get_param("colour", my.get())), "green");
    EXPECT_EQ(textOf(get_param("colour", my.get())), "green");
    EXPECT_EQ(spy.connects.size(), 1U);
}

TEST_F(GetParamOnHost, IsEmptyForAnUnknownNameAndForNull)
{
    panel.sql("INSERT INTO misc VALUES ('void', NULL), ('empty', '')");
    auto const run = printedBy([] {
        for (char const* const name : {"unknown", "void", "empty"})
            EXPECT_STREQ(get_param(name, nullptr), "") << name;
    });
    EXPECT_EQ(run.err + run.out, "");
}

TEST_F(GetParamOnHost, ReadsAnyColumnOfAnyTable)
{
    panel.sql("INSERT INTO domains (name, htype) VALUES ('d.test', 'vrt_hst')");
    EXPECT_EQ(textOf(get_param_simple("d.test", "domains", "name", "htype", nullptr)), "vrt_hst");
    EXPECT_EQ(spy.statements.back(), "select htype from domains where name='d.test'");
}

TEST_F(GetParamOnHost, ReadsHowADomainIsHosted)
{
    panel.sql("INSERT INTO domains (id, name, htype) VALUES (7, 'd.test', 'vrt_hst')");
    EXPECT_EQ(textOf(get_htype("7", nullptr)), "vrt_hst");
    EXPECT_EQ(spy.statements.back(), "select htype from domains where id='7'");
    EXPECT_STREQ(get_htype("8", nullptr), "");
}

TEST_F(GetParamOnHost, ReadsTheFirstColumnOfTheFirstRow)
{
    EXPECT_EQ(textOf(get_param_query("SELECT 'a', 'b' UNION SELECT 'c', 'd'", nullptr)), "a");
}

TEST_F(GetParamOnHost, ReadsAColumnByItsNumber)
{
    char const* const query = "SELECT 'a', 'b', NULL UNION SELECT 'c', 'd', 'e'";
    EXPECT_EQ(textOf(get_param_from_bigquery(query, nullptr, 0)), "a");
    EXPECT_EQ(textOf(get_param_from_bigquery(query, nullptr, 1)), "b");
    EXPECT_STREQ(get_param_from_bigquery(query, nullptr, 2), "");
    EXPECT_STREQ(get_param_from_bigquery(query, nullptr, 3), "") << "there is no such column";
    EXPECT_STREQ(get_param_from_bigquery("SELECT val FROM misc", nullptr, 0), "");
}

TEST_F(GetParamOnHost, CutsALongValue)
{
    EXPECT_EQ(textOf(get_param_query("SELECT REPEAT('x', 4095)", nullptr)), std::string(4095, 'x'));
    EXPECT_EQ(textOf(get_param_query("SELECT REPEAT('x', 5000)", nullptr)), std::string(4095, 'x'));
    EXPECT_EQ(textOf(get_param_from_bigquery("SELECT REPEAT('x', 5000)", nullptr, 0)),
              std::string(4095, 'x'));
}

TEST_F(GetParamOnHost, OverwritesTheResultOfTheCallBefore)
{
    char const* const first = get_param_query("SELECT 'first'", nullptr);
    char const* const other = get_param_from_bigquery("SELECT 'other'", nullptr, 0);
    EXPECT_STREQ(first, "first");
    EXPECT_EQ(get_param_query("SELECT 'second'", nullptr), first);
    EXPECT_STREQ(first, "second");
    EXPECT_STREQ(other, "other");
}

TEST_F(GetParamOnHost, ReportsThatThereIsNoConnection)
{
    panel.stop();
    std::string const expected = withErrno(no_server, ENOENT) +
                                 withErrno("Unable to connect to the mysql database\n", ENOENT);
    EXPECT_EQ(reportOf([] { return get_param("colour", nullptr); }), expected);
    EXPECT_EQ(reportOf([] { return get_htype("1", nullptr); }), expected);
    EXPECT_EQ(reportOf([] { return get_param_from_bigquery("SELECT 1", nullptr, 0); }), expected);
}

TEST_F(GetParamOnHost, ReportsAQueryThatFails)
{
    EXPECT_EQ(reportOf([] { return get_param_simple("50%s", "gone", "a", "b", nullptr); }),
              "Unable to query parameter by query select b from gone where a='50%s': Table "
              "'orv.gone' doesn't exist\n");
    EXPECT_EQ(reportOf([] { return get_param_from_bigquery("nonsense %n", nullptr, 0); })
                  .find("Unable to query parameter by query nonsense %n: You have an error in "
                        "your SQL syntax"),
              0U);
    EXPECT_EQ(reportOf([] { return get_param_query("SET @x = 1", nullptr); }),
              "Unable to query parameter by query SET @x = 1: \n");
}

TEST_F(GetParamOnHost, ReportsAConnectionThatIsGone)
{
    OpenMysql const my(db_connect());
    panel.killConnections();
    std::string const report = reportOf([&] { return get_param("colour", my.get()); });
    EXPECT_EQ(report.find("Unable to query parameter by query select val from misc where "
                          "param='colour': Server has gone away\n"),
              0U)
        << report;
}

TEST_F(GetParamOnHost, ReportsAResultThatCannotBeStored)
{
    OpenMysql const my(db_connect());
    spy.forget();
    spy.fault("store_result", 1);
    EXPECT_EQ(reportOf([&] { return get_param_query("SELECT 1", my.get()); }),
              "Unable to query parameter by query SELECT 1: \n");
}

TEST_F(GetParamOnHost, TakesANameForWhatItIsInAStatement)
{
    EXPECT_STREQ(get_param("' UNION SELECT 'pasted", nullptr), "");
    EXPECT_STREQ(get_param("caf\xc3\xa9%s", nullptr), "");
    EXPECT_EQ(spy.statements.back(), "select val from misc where param='caf\xc3\xa9%s'");
    EXPECT_STREQ(get_param("o'hara\\", nullptr), "");
    EXPECT_EQ(spy.statements.back(), "select val from misc where param='o\\'hara\\\\'");
}

TEST_F(GetParamOnHost, LeavesErrnoAloneWhenItSucceeds)
{
    errno = ENOSPC;
    EXPECT_STREQ(get_param("unknown", nullptr), "");
    EXPECT_EQ(errno, ENOSPC);
}
