#include "lib/dbconnect.h"

#include "support/child_run.h"
#include "support/fd_census.h"
#include "support/ordinary_user.h"
#include "support/panel_database_test.h"
#include "support/report.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <cerrno>
#include <cstdio>
#include <cstring>
#include <filesystem>
#include <functional>
#include <string>

#include <unistd.h>

using ::testing::ElementsAre;
using ::testing::ElementsAreArray;
using ::testing::IsEmpty;
using ::testing::StartsWith;

namespace {

constexpr char version_query[] = "SHOW VARIABLES LIKE 'version'";
constexpr char compatible_query[] = "SELECT val FROM misc WHERE param='mysql41_compatible'";
constexpr char password_refused[] =
    "Unable to connect to Orvek Database: Access denied for user 'admin'@'localhost' ";
constexpr char no_server[] = "Unable to connect to Orvek Database: Can't connect to local server "
                             "through socket '/run/mysqld/mysqld.sock' (2)";

class DbConnectOnHost : public PanelDatabaseTest
{
protected:
    using Way = MYSQL* (*)(char*, size_t);

    // Connects, and closes what came of it; whether there was a handle.
    bool connects(Way way = orvek_db_connect)
    {
        OpenMysql const my(way(message, sizeof message));
        return my != nullptr;
    }

    // The connection is given up, whoever makes it, with the text.
    void expectRefusal(std::string const& text)
    {
        for (Way const way : {orvek_db_connect_raw_ex, orvek_db_connect_raw, orvek_db_connect_ex,
                              orvek_db_connect, db_connect_nothrow}) {
            EXPECT_FALSE(connects(way));
            EXPECT_STREQ(message, text.c_str());
        }
    }

    // A connection with one statement replaced: the handle that stays open gives a true result.
    bool connectsWith(std::string const& statement, std::string const& other,
                      Way way = orvek_db_connect)
    {
        spy.forget();
        spy.replace(statement, other);
        return connects(way);
    }

    std::vector<std::string> characterSetFor(std::string const& value)
    {
        spy.forget();
        panel.sql("REPLACE INTO misc VALUES ('mysql41_compatible', " + value + ")");
        EXPECT_TRUE(connects());
        EXPECT_EQ(spy.statements.size(), 4U);
        return {spy.statements.back(), std::to_string(_mysql41_compatible)};
    }

    char message[4097] = "what was here before";
};

using GetAdminPasswordOnHost = DbConnectOnHost;

} // namespace

TEST_F(DbConnectOnHost, ConnectsToThePanelsDatabaseOverTheDefaultSocket)
{
    ASSERT_TRUE(connects(orvek_db_connect_raw));
    ASSERT_EQ(spy.connects.size(), 1U);
    auto const& connect = spy.connects[0];
    EXPECT_EQ(connect.host, "localhost");
    EXPECT_EQ(connect.user, "admin");
    EXPECT_EQ(connect.password, "panel-secret");
    EXPECT_EQ(connect.database, "orv");
    EXPECT_EQ(connect.port, 0U);
    EXPECT_EQ(connect.socket, "default");
    EXPECT_EQ(connect.flags, 0UL);
}

TEST_F(DbConnectOnHost, LeavesAnEmptyTextBehindASuccess)
{
    ASSERT_TRUE(connects());
    EXPECT_STREQ(message, "");
}

TEST_F(DbConnectOnHost, SetsNothingUpOnARawConnection)
{
    EXPECT_TRUE(connects(orvek_db_connect_raw_ex));
    EXPECT_TRUE(connects(orvek_db_connect_raw));
    EXPECT_THAT(spy.statements, IsEmpty());
}

TEST_F(DbConnectOnHost, SetsAConnectionUpInItsOrder)
{
    for (Way const way : {orvek_db_connect_ex, orvek_db_connect, db_connect_nothrow}) {
        spy.forget();
        EXPECT_TRUE(connects(way));
        EXPECT_THAT(spy.statements, ElementsAreArray(panel_set_up));
    }
}

TEST_F(DbConnectOnHost, HoldsNoDescriptorButTheConnections)
{
    auto const before = openDescriptors();
    {
        OpenMysql const my(db_connect());
        ASSERT_TRUE(my);
        EXPECT_EQ(openDescriptors().size(), before.size() + 1);
    }
    EXPECT_EQ(openDescriptors(), before);
}

TEST_F(DbConnectOnHost, TakesThePasswordWithAndWithoutALineFeed)
{
    for (char const* const text : {"panel-secret\n", "panel-secret", "panel-secret\nmore\n"}) {
        PanelDatabase::writePassword(text);
        EXPECT_TRUE(connects(orvek_db_connect_raw)) << text;
        EXPECT_EQ(spy.connects.back().password, "panel-secret");
    }
}

TEST_F(DbConnectOnHost, CutsNoMoreThanOneLineFeedFromThePassword)
{
    PanelDatabase::writePassword("panel-secret\r\n");
    EXPECT_FALSE(connects());
    EXPECT_EQ(spy.connects.back().password, "panel-secret\r");
    EXPECT_THAT(message, StartsWith(password_refused));
}

TEST_F(DbConnectOnHost, CutsAPasswordAt99Characters)
{
    std::string const longest(99, 'p');
    for (char const* const rest : {"", "q", "\n", "qrst\n"}) {
        PanelDatabase::writePassword(longest + rest);
        EXPECT_FALSE(connects());
        EXPECT_EQ(spy.connects.back().password, longest);
    }
}

TEST_F(DbConnectOnHost, TakesAnEmptyLineForAnEmptyPassword)
{
    PanelDatabase::writePassword("\npanel-secret\n");
    expectRefusal(std::string(password_refused) + "(using password: NO)");
}

TEST_F(DbConnectOnHost, PassesBytesOfEveryKindToTheClientLibrary)
{
    PanelDatabase::writePassword("%s%n'\"\\\xff\xc3 ;\n");
    expectRefusal(std::string(password_refused) + "(using password: YES)");
    EXPECT_EQ(spy.connects.back().password, "%s%n'\"\\\xff\xc3 ;");
}

TEST_F(DbConnectOnHost, NeverShowsThePasswordInATextOfItsOwn)
{
    PanelDatabase::writePassword("not-this-one\n");
    auto const run = printedBy([] { OpenMysql const my(db_connect()); });
    EXPECT_EQ(run.err.find("not-this-one"), std::string::npos);
    EXPECT_THAT(run.err, StartsWith(password_refused));
}

TEST_F(DbConnectOnHost, SaysThatThePasswordFileIsMissing)
{
    unlink(panel_password_file);
    expectRefusal("Unable to open admin password file: No such file or directory");
    EXPECT_EQ(errno, ENOENT);
    EXPECT_THAT(spy.connects, IsEmpty());
}

TEST_F(DbConnectOnHost, SaysThatThePasswordFileMayNotBeRead)
{
    auto const run = asOrdinaryUser([this] {
        expectRefusal("Unable to open admin password file: Permission denied");
        return HasFailure() ? 1 : 0;
    });
    EXPECT_EQ(run.status, 0) << run.out;
}

TEST_F(DbConnectOnHost, SaysThatThePasswordFileCannotBeRead)
{
    unlink(panel_password_file);
    std::filesystem::create_directory(panel_password_file);
    expectRefusal("Unable to read admin password file: Is a directory");
    EXPECT_EQ(errno, EISDIR);
    std::filesystem::remove(panel_password_file);
}

TEST_F(DbConnectOnHost, SaysThatThePasswordFileIsEmpty)
{
    PanelDatabase::writePassword("");
    errno = 0;
    EXPECT_FALSE(connects());
    EXPECT_STREQ(message, "Unable to read admin password file: Success");
}

TEST_F(DbConnectOnHost, SaysThatTheClientLibraryHasNoMemory)
{
    spy.fault("init", 1);
    errno = 0;
    EXPECT_FALSE(connects());
    EXPECT_STREQ(message,
                 "Unable to initialize MySQL connection structure: Cannot allocate memory");
    EXPECT_EQ(errno, ENOMEM);
}

TEST_F(DbConnectOnHost, SaysThatTheServerIsStopped)
{
    panel.stop();
    expectRefusal(no_server);
}

TEST_F(DbConnectOnHost, SaysThatThePasswordIsRefused)
{
    PanelDatabase::writePassword("wrong\n");
    expectRefusal(std::string(password_refused) + "(using password: YES)");
}

TEST_F(DbConnectOnHost, CutsTheTextToTheBuffer)
{
    panel.stop();
    char small[11] = "0123456789";
    EXPECT_EQ(orvek_db_connect(small, 8), nullptr);
    EXPECT_STREQ(small, "Unable ");
    EXPECT_EQ(small[8], '8');
    small[0] = 'x';
    EXPECT_EQ(orvek_db_connect(small, 0), nullptr);
    EXPECT_EQ(small[0], 'x');
}

TEST_F(DbConnectOnHost, ReportsAndGivesNull)
{
    panel.stop();
    auto const run = inChild([] { return db_connect() ? 1 : 0; });
    EXPECT_EQ(run.status, 0);
    EXPECT_EQ(run.err, withErrno(no_server, ENOENT));
    EXPECT_EQ(run.out, run.err);
}

TEST_F(DbConnectOnHost, ReportsNoSystemErrorWhereNoneIsPending)
{
    WithoutTable const without(panel, "misc");
    auto const run = inChild([] { return db_connect() ? 1 : 0; });
    EXPECT_EQ(run.status, 0);
    EXPECT_EQ(run.err,
              "DB error (mysql41 compatible query) 1146: Table 'orv.misc' doesn't exist\n");
    EXPECT_EQ(run.out, run.err);
}

TEST_F(DbConnectOnHost, LeavesErrnoAloneUnlessTheClientLibraryFails)
{
    errno = ENOSPC;
    ASSERT_TRUE(connects());
    EXPECT_EQ(errno, ENOSPC);
    EXPECT_FALSE(connectsWith(version_query, "SELECT * FROM gone"));
    EXPECT_EQ(errno, ENOSPC);
    PanelDatabase::writePassword("wrong\n");
    EXPECT_FALSE(connects());
    EXPECT_EQ(errno, ENOSPC);
    panel.stop();
    EXPECT_FALSE(connects());
    EXPECT_EQ(errno, ENOENT);
}

TEST_F(DbConnectOnHost, ReportsNothingOnSuccess)
{
    auto const run = printedBy([] { OpenMysql const my(db_connect()); });
    EXPECT_EQ(run.err + run.out, "");
}

TEST_F(DbConnectOnHost, DoesNotMindAServerThatRefusesToLetForeignKeysBe)
{
    EXPECT_TRUE(connectsWith("set foreign_key_checks=0", "nonsense"));
    EXPECT_STREQ(message, "");
    EXPECT_EQ(spy.statements.size(), 4U);
}

TEST_F(DbConnectOnHost, AsksNoCharacterSetOfAServerThatHasNone)
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

TEST_F(DbConnectOnHost, AsksACharacterSetOfEveryOtherServer)
{
    for (char const* const version : {"4.1.22", "4.0", "4.10.1", "30.1", "5.7.1", "", "x3.1"}) {
        EXPECT_TRUE(
            connectsWith(version_query, std::string("SELECT 'version', '") + version + "'"));
        EXPECT_THAT(spy.statements, ElementsAreArray(panel_set_up)) << version;
    }
}

TEST_F(DbConnectOnHost, SpeaksBinaryUnlessThePanelSaysThatItIsCompatible)
{
    EXPECT_TRUE(connects());
    EXPECT_EQ(spy.statements.back(), "SET NAMES binary");
    EXPECT_EQ(_mysql41_compatible, 0);
    for (char const* const value : {"'false'", "''", "NULL"})
        EXPECT_THAT(characterSetFor(value), ElementsAre("SET NAMES binary", "0")) << value;
}

TEST_F(DbConnectOnHost, SpeaksUtf8ForAnyTextButFalse)
{
    for (char const* const value :
         {"'true'", "'yes'", "'0'", "' '", "'False'", "'falsey'", "'fals'"})
        EXPECT_THAT(characterSetFor(value), ElementsAre("SET NAMES utf8", "1")) << value;
}

TEST_F(DbConnectOnHost, KnowsTheCompatibilityOfTheLastConnection)
{
    characterSetFor("'true'");
    EXPECT_EQ(db_is_mysql41_compatible(), 1);
    EXPECT_EQ(orvek_db_mysql41_compatible_raw(), 1);
    characterSetFor("'false'");
    EXPECT_EQ(db_is_mysql41_compatible(), 0);
    EXPECT_EQ(orvek_db_mysql41_compatible_raw(), 0);
}

TEST_F(DbConnectOnHost, TakesACompatibilityThatCannotBeStoredForNone)
{
    panel.sql("INSERT INTO misc VALUES ('mysql41_compatible', 'true')");
    spy.fault("store_result", 2);
    EXPECT_TRUE(connects());
    EXPECT_EQ(spy.statements.back(), "SET NAMES binary");
    EXPECT_EQ(_mysql41_compatible, 0);
    EXPECT_STREQ(message, "");
}

TEST_F(DbConnectOnHost, EndsTheSetUpAtTheStepThatFails)
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

TEST_F(DbConnectOnHost, KeepsAConnectionWhoseStepFailedWithoutAnErrorOfTheServers)
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

TEST_F(DbConnectOnHost, KeepsTheCompatibilityWhenTheSetUpDoesNotGetThatFar)
{
    _mysql41_compatible = 1;
    EXPECT_FALSE(connectsWith(version_query, "SELECT * FROM gone"));
    EXPECT_EQ(_mysql41_compatible, 1);
}

TEST_F(DbConnectOnHost, LosesAConnectionThatIsKilledDuringTheSetUp)
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

TEST_F(DbConnectOnHost, KeepsErrnoWhenItLetsGoOfAConnection)
{
    OpenMysql my(db_connect());
    ASSERT_TRUE(my);
    errno = ENOSPC;
    my.reset();
    EXPECT_EQ(errno, ENOSPC);
}

TEST_F(GetAdminPasswordOnHost, CutsOneTrailingLineFeed)
{
    EXPECT_STREQ(get_admin_password(), "panel-secret");
    PanelDatabase::writePassword("panel-secret");
    EXPECT_STREQ(get_admin_password(), "panel-secret");
    PanelDatabase::writePassword("panel-secret\n\n");
    EXPECT_STREQ(get_admin_password(), "panel-secret\n");
    PanelDatabase::writePassword("two\nlines\n");
    EXPECT_STREQ(get_admin_password(), "two\nlines");
}

TEST_F(GetAdminPasswordOnHost, GivesAnEmptyTextForAnEmptyFile)
{
    PanelDatabase::writePassword("");
    EXPECT_STREQ(get_admin_password(), "");
}

TEST_F(GetAdminPasswordOnHost, HoldsAPasswordThatAConnectionWouldCut)
{
    std::string const password(150, 'p');
    PanelDatabase::writePassword(password + "\n");
    EXPECT_EQ(get_admin_password(), password);
}

TEST_F(GetAdminPasswordOnHost, ReadsNoMoreThan4096Bytes)
{
    PanelDatabase::writePassword(std::string(5000, 'p'));
    EXPECT_EQ(get_admin_password(), std::string(4096, 'p'));
    PanelDatabase::writePassword("x\n");
    EXPECT_STREQ(get_admin_password(), "x");
}

TEST_F(GetAdminPasswordOnHost, EndsTheProcessWithoutAPasswordFile)
{
    unlink(panel_password_file);
    auto const run = inChild([] { return *get_admin_password(); });
    EXPECT_EQ(run.status, 1);
    EXPECT_EQ(run.err, withErrno("Unable to open admin password file", ENOENT));
    EXPECT_EQ(run.out, run.err);
}

TEST_F(GetAdminPasswordOnHost, EndsTheProcessWhenItCannotRead)
{
    unlink(panel_password_file);
    std::filesystem::create_directory(panel_password_file);
    auto const run = inChild([] { return *get_admin_password(); });
    std::filesystem::remove(panel_password_file);
    EXPECT_EQ(run.status, 1);
    EXPECT_EQ(run.err, withErrno("Unable to read admin password file", EISDIR));
}
