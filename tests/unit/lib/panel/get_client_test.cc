#include "lib/panel/get_client.h"

#include "lib/panel/dbconnect.h"
#include "lib/panel/get_param.h"
#include "support/child_run.h"
#include "support/panel_database_test.h"
#include "support/report.h"

#include <gtest/gtest.h>

#include <cerrno>
#include <functional>
#include <string>

namespace {

constexpr char no_connection[] =
    "Unable to connect to Orvek Database: Can't connect to local server through socket "
    "'/run/mysqld/mysqld.sock' (2)";

class GetClientOnHost : public PanelDatabaseTest
{
protected:
    void SetUp() override
    {
        PanelDatabaseTest::SetUp();
        panel.sql("INSERT INTO clients (id, email) VALUES (3, 'owner@d.test'), (4, NULL), (5, '')");
        panel.sql("INSERT INTO domains (id, name, cl_id) VALUES (7, 'd.test', 3), "
                  "(8, 'null.test', 4), (9, 'empty.test', 5)");
    }

    static std::string reportOf(std::function<bool()> const& call)
    {
        auto const run = inChild([&] { return call() ? 1 : 0; });
        EXPECT_EQ(run.status, 0);
        EXPECT_EQ(run.out, run.err);
        return run.err;
    }
};

} // namespace

TEST_F(GetClientOnHost, GivesTheAddressOfADomainsClient)
{
    EXPECT_STREQ(get_client_email("7", nullptr), "owner@d.test");
    EXPECT_EQ(spy.statements.back(), "select c.email from domains d, clients c "
                                     "\t\t\t\t\t\t\t\t\twhere d.cl_id=c.id and d.id='7'");
}

TEST_F(GetClientOnHost, FallsBackToTheAdministratorsAddress)
{
    panel.sql("INSERT INTO misc VALUES ('admin_email', 'admin@panel.test')");
    for (char const* const dom_id : {"8", "9", "10"}) {
        EXPECT_STREQ(get_client_email(dom_id, nullptr), "admin@panel.test") << dom_id;
        EXPECT_EQ(spy.statements.back(), "select val from misc where param='admin_email'");
    }
    EXPECT_EQ(spy.connects.size(), 3U) << "one for each call";
}

TEST_F(GetClientOnHost, GivesAnAddressThatTheNextParameterDoesNotOverwrite)
{
    panel.sql("INSERT INTO misc VALUES ('admin_email', 'admin@panel.test'), ('colour', 'green')");
    char const* const email = get_client_email("8", nullptr);
    EXPECT_STREQ(get_param("colour", nullptr), "green");
    EXPECT_STREQ(email, "admin@panel.test");
}

TEST_F(GetClientOnHost, ReportsThatNeitherAddressIsKnown)
{
    char const* const text = "Unable to define admin email\n";
    EXPECT_EQ(reportOf([] { return get_client_email("8", nullptr) != nullptr; }), text);
    panel.sql("INSERT INTO misc VALUES ('admin_email', '')");
    EXPECT_EQ(reportOf([] { return get_client_email("8", nullptr) != nullptr; }), text);
}

TEST_F(GetClientOnHost, ReportsAnAdministratorsAddressThatCannotBeRead)
{
    OpenMysql const my(db_connect());
    WithoutTable const without(panel, "misc");
    EXPECT_EQ(reportOf([&] { return get_client_email("8", my.get()) != nullptr; }),
              "Unable to query parameter by query select val from misc where "
              "param='admin_email': Table 'orv.misc' doesn't exist\n"
              "Unable to define admin email\n");
}

TEST_F(GetClientOnHost, ReportsAClientThatCannotBeRead)
{
    WithoutTable const without(panel, "clients");
    EXPECT_EQ(reportOf([] { return get_client_email("7", nullptr) != nullptr; }),
              "Unable to define clients email: Table 'orv.clients' doesn't exist\n");
    EXPECT_EQ(reportOf([] { return get_client_id_by_domain("7", nullptr) != 0; }),
              "Unable to define client's ID: Table 'orv.clients' doesn't exist\n");
}

TEST_F(GetClientOnHost, ReportsThatThereIsNoConnection)
{
    panel.stop();
    std::string const expected = withErrno(no_connection, ENOENT) +
                                 withErrno("Unable to connect to the mysql database\n", ENOENT);
    EXPECT_EQ(reportOf([] { return get_client_email("7", nullptr) != nullptr; }), expected);
    EXPECT_EQ(reportOf([] { return get_client_id_by_domain("7", nullptr) != 0; }), expected);
}

TEST_F(GetClientOnHost, GivesTheIdOfADomainsClient)
{
    EXPECT_EQ(get_client_id_by_domain("7", nullptr), 3U);
    EXPECT_EQ(spy.statements.back(), "select c.id from domains d, clients c "
                                     "\t\t\t\t\t\t\t\t\twhere d.cl_id=c.id and d.id='7'");
    OpenMysql const my(db_connect());
    EXPECT_EQ(get_client_id_by_domain("8", my.get()), 4U);
    EXPECT_EQ(spy.connects.size(), 2U);
}

TEST_F(GetClientOnHost, GivesTheHighestId)
{
    panel.sql("UPDATE clients SET id = 4294967295 WHERE id = 3");
    panel.sql("UPDATE domains SET cl_id = 4294967295 WHERE id = 7");
    EXPECT_EQ(get_client_id_by_domain("7", nullptr), 4294967295U);
}

TEST_F(GetClientOnHost, HasNoIdForAnUnknownDomain)
{
    auto const run = inChild([] { return get_client_id_by_domain("10", nullptr) == 0 ? 0 : 1; });
    EXPECT_EQ(run.status, 0);
    EXPECT_EQ(run.err, "");
}
