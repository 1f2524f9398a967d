#include "lib/panel/dbconnect.h"

#include "unit/lib/panel/dbconnect_test.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <string>
#include <vector>

using ::testing::ElementsAre;
using ::testing::ElementsAreArray;

namespace {

constexpr char compatible_query[] = "SELECT val FROM misc WHERE param='mysql41_compatible'";

class DbConnectSetUpOnHost : public DbConnectTest
{
protected:
    std::vector<std::string> characterSetFor(std::string const& value)
    {
        spy.forget();
        panel.sql("REPLACE INTO misc VALUES ('mysql41_compatible', " + value + ")");
        EXPECT_TRUE(connects());
        EXPECT_EQ(spy.statements.size(), 4U);
        return {spy.statements.back(), std::to_string(_mysql41_compatible)};
    }
};

} // namespace

TEST_F(DbConnectSetUpOnHost, AcceptsAServerThatRefusesTheForeignKeySetting)
{
    EXPECT_TRUE(connectsWith("set foreign_key_checks=0", "nonsense"));
    EXPECT_STREQ(message, "");
    EXPECT_EQ(spy.statements.size(), 4U);
}

TEST_F(DbConnectSetUpOnHost, AsksNoCharacterSetOfAServerThatHasNone)
{
    for (char const* const version : {"3.23.58", "3.", "4.0.27-standard", "4.0."}) {
        _mysql41_compatible = 1;
        EXPECT_TRUE(
            connectsWith(version_query, std::string("SELECT 'version', '") + version + "'"));
        EXPECT_STREQ(message, "");
        EXPECT_THAT(spy.statements, ElementsAre("set foreign_key_checks=0", version_query));
        EXPECT_EQ(_mysql41_compatible, 0);
    }
}

TEST_F(DbConnectSetUpOnHost, AsksACharacterSetOfEveryOtherServer)
{
    for (char const* const version : {"4.1.22", "4.0", "4.10.1", "30.1", "5.7.1", "", "x3.1"}) {
        EXPECT_TRUE(
            connectsWith(version_query, std::string("SELECT 'version', '") + version + "'"));
        EXPECT_THAT(spy.statements, ElementsAreArray(panel_set_up)) << version;
    }
}

TEST_F(DbConnectSetUpOnHost, SpeaksBinaryUnlessThePanelSaysThatItIsCompatible)
{
    EXPECT_TRUE(connects());
    EXPECT_EQ(spy.statements.back(), "SET NAMES binary");
    EXPECT_EQ(_mysql41_compatible, 0);
    for (char const* const value : {"'false'", "''", "NULL"})
        EXPECT_THAT(characterSetFor(value), ElementsAre("SET NAMES binary", "0")) << value;
}

TEST_F(DbConnectSetUpOnHost, SpeaksUtf8ForAnyTextButFalse)
{
    for (char const* const value :
         {"'true'", "'yes'", "'0'", "' '", "'False'", "'falsey'", "'fals'"})
        EXPECT_THAT(characterSetFor(value), ElementsAre("SET NAMES utf8", "1")) << value;
}

TEST_F(DbConnectSetUpOnHost, KnowsTheCompatibilityOfTheLastConnection)
{
    characterSetFor("'true'");
    EXPECT_EQ(db_is_mysql41_compatible(), 1);
    EXPECT_EQ(orvek_db_mysql41_compatible_raw(), 1);
    characterSetFor("'false'");
    EXPECT_EQ(db_is_mysql41_compatible(), 0);
    EXPECT_EQ(orvek_db_mysql41_compatible_raw(), 0);
}

TEST_F(DbConnectSetUpOnHost, TakesACompatibilityThatCannotBeStoredForNone)
{
    panel.sql("INSERT INTO misc VALUES ('mysql41_compatible', 'true')");
    spy.fault("store_result", 2);
    EXPECT_TRUE(connects());
    EXPECT_EQ(spy.statements.back(), "SET NAMES binary");
    EXPECT_EQ(_mysql41_compatible, 0);
    EXPECT_STREQ(message, "");
}

TEST_F(DbConnectSetUpOnHost, EndsTheSetUpAtTheStepThatFails)
{
    struct Row
    {
        char const* statement;
        size_t done;
        char const* step;
    };
    for (Row const& row : {Row{version_query, 2, "query version"},
                           Row{compatible_query, 3, "mysql41 compatible query"},
                           Row{"SET NAMES binary", 4, "set names query"}}) {
        std::string const text =
            std::string("DB error (") + row.step + ") 1146: Table 'orv.gone' doesn't exist";
        for (Way const way : {orvek_db_connect, db_connect_nothrow}) {
            EXPECT_FALSE(connectsWith(row.statement, "SELECT * FROM gone", way));
            EXPECT_EQ(message, text);
            EXPECT_EQ(spy.statements.size(), row.done);
        }
        spy.forget();
        spy.replace(row.statement, "SELECT * FROM gone");
        OpenMysql const my(orvek_db_connect_ex(message, sizeof message));
        ASSERT_TRUE(my) << "the handle comes as it stands";
        EXPECT_EQ(mysql_errno(my.get()), 1146U);
        EXPECT_EQ(message, text);
    }
}

TEST_F(DbConnectSetUpOnHost, KeepsAConnectionWhoseStepFailedWithoutAServerError)
{
    EXPECT_TRUE(connectsWith(version_query, "SELECT 1 FROM misc WHERE 1=0", db_connect_nothrow));
    EXPECT_STREQ(message, "DB error (fetch version row): unknown error");
    EXPECT_TRUE(connectsWith(version_query, "SELECT 'version', NULL"));
    EXPECT_STREQ(message, "DB error (empty version result): unknown error");
    EXPECT_TRUE(connectsWith(version_query, "SELECT 'version'"));
    EXPECT_STREQ(message, "DB error (empty version result): unknown error");
    EXPECT_TRUE(connectsWith(version_query, "SET @x = 1"));
    EXPECT_STREQ(message, "DB error (store query result): unknown error");
    EXPECT_EQ(spy.statements.size(), 2U);
}

TEST_F(DbConnectSetUpOnHost, KeepsTheCompatibilityWhenTheSetUpEndsEarly)
{
    _mysql41_compatible = 1;
    EXPECT_FALSE(connectsWith(version_query, "SELECT * FROM gone"));
    EXPECT_EQ(_mysql41_compatible, 1);
}

TEST_F(DbConnectSetUpOnHost, LosesAConnectionThatIsKilledDuringTheSetUp)
{
    for (int const statement : {2, 3, 4}) {
        spy.forget();
        spy.before = [=, this](int number) {
            if (number == statement)
                panel.killConnections();
        };
        EXPECT_FALSE(connects()) << statement;
        EXPECT_THAT(message, ::testing::HasSubstr(") 2006: ")) << message;
    }
}
