#include "lib/panel/dbconnect.h"

#include "support/child_run.h"
#include "support/panel_database_test.h"
#include "support/report.h"

#include <gtest/gtest.h>

#include <cerrno>
#include <filesystem>
#include <string>

#include <unistd.h>

namespace {

using GetAdminPasswordOnHost = PanelDatabaseTest;

} // namespace

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
