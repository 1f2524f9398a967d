// panel_database - the panel's real database in the throw-away mail host, for unit suites
//
// A fixture has a PanelDatabase. Its SetUp calls start once HostTest has accepted the host, and its
// TearDown always calls restore. restore empties the tables, starts a stopped server, puts the
// password file back, and fails the test when it left a connection or a result open. Statements of
// sql run as the server's root and are not recorded by the spy. Before start, sql and restore do
// nothing, so that a test outside the host touches no server.

#ifndef MAILVEK_TESTS_SUPPORT_PANEL_DATABASE_H
#define MAILVEK_TESTS_SUPPORT_PANEL_DATABASE_H

#include "build_paths.h"
#include "support/mysql_spy.h"
#include "support/temp_dir.h"

#include <gtest/gtest.h>

#include <cstdlib>
#include <string>
#include <vector>

#include <sys/stat.h>
#include <unistd.h>

constexpr char panel_password_file[] = "/etc/orv/.orv.shadow";

// The first statements of each connection when "mysql41_compatible" is not set.
inline std::vector<std::string> const panel_set_up = {
    "set foreign_key_checks=0", "SHOW VARIABLES LIKE 'version'",
    "SELECT val FROM misc WHERE param='mysql41_compatible'", "SET NAMES binary"};

class PanelDatabase
{
public:
    void start()
    {
        started = true;
        service("start");
        spy.forget();
    }

    void restore()
    {
        if (!started)
            return;
        EXPECT_TRUE(spy.open.empty()) << "a connection was left open";
        EXPECT_TRUE(spy.results.empty()) << "a result was left unfreed";
        // A connection that this test has lost must not fail the next one.
        spy.open.clear();
        spy.results.clear();
        spy.forget();
        service("start");
        unlink(panel_password_file);
        writePassword("panel-secret\n");
        for (std::string const& table : sql("SHOW TABLES FROM orv"))
            sql("DELETE FROM orv." + table);
    }

    void stop() { service("stop"); }

    static void writePassword(std::string const& text)
    {
        writeFile(panel_password_file, text);
        chmod(panel_password_file, 0600);
    }

    // The rows of a statement, columns separated by "|", NULL as "NULL". A failure gives the one
    // row "error: " and the server's text.
    std::vector<std::string> sql(std::string const& statement)
    {
        if (!started)
            return {"error: not started"};
        MysqlSpy::Inside const unseen(spy);
        std::vector<std::string> rows;
        MYSQL* const my = mysql_init(nullptr);
        if (mysql_real_connect(my, "localhost", "root", "", "orv", 0, nullptr, 0) &&
            mysql_real_query(my, statement.data(), statement.size()) == 0)
            rows = fetched(my);
        if (mysql_errno(my) != 0)
            rows.assign(1, std::string("error: ") + mysql_error(my));
        mysql_close(my);
        return rows;
    }

    // The number of connections that the server has accepted, including this one.
    long connections()
    {
        std::string const row = sql("SHOW GLOBAL STATUS LIKE 'Connections'").at(0);
        return atol(row.c_str() + row.find('|') + 1);
    }

    // Ends the connections of the panel's user from the server's side.
    void killConnections()
    {
        for (std::string const& id :
             sql("SELECT id FROM information_schema.processlist WHERE user = 'admin'"))
            sql("KILL " + id);
    }

    MysqlSpy& spy = mysqlSpy();

private:
    static void service(std::string const& verb)
    {
        std::string const command = std::string(HOST_SERVICE) + " " + verb + " mariadb";
        ASSERT_EQ(system(command.c_str()), 0) << command;
    }

    static std::vector<std::string> fetched(MYSQL* my)
    {
        std::vector<std::string> rows;
        MYSQL_RES* const result = mysql_store_result(my);
        while (MYSQL_ROW const row = result ? mysql_fetch_row(result) : nullptr) {
            rows.emplace_back();
            for (unsigned int i = 0; i < mysql_num_fields(result); ++i)
                rows.back() += (i ? "|" : "") + std::string(row[i] ? row[i] : "NULL");
        }
        mysql_free_result(result);
        return rows;
    }

    bool started = false;
};

// Removes a table from the panel's database while it lives, and puts it back with all rows.
class WithoutTable
{
public:
    WithoutTable(PanelDatabase& panel, std::string name) : panel(panel), name(std::move(name))
    {
        panel.sql("RENAME TABLE orv." + this->name + " TO orv.taken_away");
    }
    ~WithoutTable() { panel.sql("RENAME TABLE orv.taken_away TO orv." + name); }
    WithoutTable(WithoutTable const&) = delete;
    WithoutTable& operator=(WithoutTable const&) = delete;

private:
    PanelDatabase& panel;
    std::string const name;
};

#endif
