// get_domain_test - base of the suites of what is known of a domain: two domains, and what readers
// give and report

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

// For a report that begins with an error of the server's.
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

    // Runs a call that is expected to return with this result; what it prints on both streams.
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

    // The reader gives text, by this statement, and reads on the caller's connection as well as
    // on one of its own.
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

    // The reader has no text for such a row, and says nothing of it.
    void expectNothing(Reader const& reader)
    {
        EXPECT_EQ(reportOf([&] { return reader(nullptr) != nullptr; }), "");
    }

    // What the reader reports without its table, and without a server.
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
