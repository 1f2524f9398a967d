// panel_database - the panel's real database in the throw-away mail host, for unit suites
//
// A fixture holds a PanelDatabase and calls start from its SetUp, once HostTest has let it pass,
// and restore from its TearDown, whatever has become of the test: that empties the tables, starts
// the server if it was stopped, puts the password file back, and fails the test when a connection
// or a result was left open. Statements of sql run as the server's root, unseen by the spy. Before
// start both do nothing, so that a test which was not let pass touches no server.

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

// What each connection begins with, in a database whose "mysql41_compatible" is not set.
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
        // What one test has lost is no failure of the next.
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

    // The rows of a statement, columns parted by "|", NULL as "NULL"; a failure is the one row
    // "error: " and the server's text.
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

    // How many connections the server has accepted, this one included.
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

// The panel's database without one of its tables, which is back with all rows at the end.
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
