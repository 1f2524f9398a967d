#include "lib/panel/dbconnect.h"

#include "support/child_run.h"
#include "support/fd_census.h"
#include "support/ordinary_user.h"
#include "support/report.h"
#include "unit/lib/panel/dbconnect_test.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <cerrno>
#include <filesystem>
#include <string>

#include <unistd.h>

using ::testing::ElementsAreArray;
using ::testing::IsEmpty;
using ::testing::StartsWith;

namespace {

constexpr char password_refused[] =
    "Unable to connect to Orvek Database: Access denied for user 'admin'@'localhost' ";
constexpr char no_server[] = "Unable to connect to Orvek Database: Can't connect to local server "
                             "through socket '/run/mysqld/mysqld.sock' (2)";

using DbConnectOnHost = DbConnectTest;

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

TEST_F(DbConnectOnHost, KeepsErrnoWhenItLetsGoOfAConnection)
{
    OpenMysql my(db_connect());
    ASSERT_TRUE(my);
    errno = ENOSPC;
    my.reset();
    EXPECT_EQ(errno, ENOSPC);
}
