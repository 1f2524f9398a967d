// get_domain_test - base of the suites of readers of a domain: two domains, and checks of the
// readers' results and reports

#ifndef MAILVEK_TESTS_UNIT_LIB_PANEL_GET_DOMAIN_TEST_H
#define MAILVEK_TESTS_UNIT_LIB_PANEL_GET_DOMAIN_TEST_H

#include "lib/panel/dbconnect.h"
#include "support/child_run.h"
#include "support/panel_database_test.h"
#include "support/report.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <cerrno>
#include <functional>
#include <string>

inline constexpr char no_server[] =
    "Unable to connect to Orvek Database: Can't connect to local server "
    "through socket '/run/mysqld/mysqld.sock' (2)";

// The server's error at the beginning of a report.
inline constexpr char no_domains[] = "Table 'orv.domains' doesn't exist";

class GetDomainTest : public PanelDatabaseTest
{
protected:
    void SetUp() override
    {
        PanelDatabaseTest::SetUp();
        panel.sql("INSERT INTO domains (id, name, status, dns_zone_id, limits_id) VALUES "
                  "(7, 'd.test', 66, 21, 31), (8, 'Other.Test', 0, 22, 32)");
    }

    // Runs a call that must return this result. Returns its output on both streams.
    static std::string printed(bool expected, std::function<bool()> const& call)
    {
        auto const run = inChild([&] { return call() == expected ? 42 : 43; });
        EXPECT_EQ(run.status, 42) << run.err;
        EXPECT_EQ(run.out, run.err);
        return run.err;
    }

    static std::string reportOf(std::function<bool()> const& call) { return printed(false, call); }

    static std::string fatalReportOf(std::function<bool()> const& call)
    {
        auto const run = inChild([&] { return call() ? 42 : 43; });
        EXPECT_EQ(run.status, 1);
        EXPECT_EQ(run.out, run.err);
        return run.err;
    }

    static std::string unconnected(std::string const& text)
    {
        return withErrno(no_server, ENOENT) + withErrno(text, ENOENT);
    }

    // Expects that the reader returns text, runs this statement, and works on the caller's
    // connection as well as on its own.
    using Reader = std::function<char const*(MYSQL*)>;
    void expectText(Reader const& reader, std::string const& text, std::string const& statement)
    {
        spy.forget();
        EXPECT_EQ(std::string(reader(nullptr)), text);
        EXPECT_EQ(spy.statements.back(), statement);
        EXPECT_THAT(spy.open, ::testing::IsEmpty());
        OpenMysql const my(db_connect());
        EXPECT_EQ(std::string(reader(my.get())), text);
        EXPECT_THAT(spy.connects, ::testing::SizeIs(2));
    }

    // Expects that the reader returns null for such a row, without a report.
    void expectNothing(Reader const& reader)
    {
        EXPECT_EQ(reportOf([&] { return reader(nullptr) != nullptr; }), "");
    }

    // Expects these reports from the reader without its table, and without a server.
    void expectReports(Reader const& reader, std::string const& table, std::string const& failed,
                       std::string const& not_connected)
    {
        auto const gives_text = [&] { return reader(nullptr) != nullptr; };
        {
            WithoutTable const without(panel, table);
            EXPECT_EQ(reportOf(gives_text), failed);
        }
        panel.stop();
        EXPECT_EQ(reportOf(gives_text), unconnected(not_connected));
    }
};

#endif
