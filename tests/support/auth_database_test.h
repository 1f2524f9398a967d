// auth_database_test - a mail authentication database of its own for each test
//
// The database is empty at first, in a directory of the test. Reports are recorded and the calls
// to SQLite are spied on. A test that leaves a connection open fails. expectFailure checks how an
// operation fails.

#ifndef MAILVEK_TESTS_SUPPORT_AUTH_DATABASE_TEST_H
#define MAILVEK_TESTS_SUPPORT_AUTH_DATABASE_TEST_H

#include "mail/lib/accounts/mail_auth_schema.h"
#include "mail/lib/accounts/mail_auth_style.h"
#include "support/log_recorder.h"
#include "support/memory_faults.h" // the program is linked for it
#include "support/sqlite_spy.h"
#include "support/temp_dir.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <sqlite3.h>

#include <functional>
#include <string>
#include <vector>

#include <unistd.h>

// The rows of a query, columns separated by "|", NULL as "NULL". Also runs statements without
// rows. A failure gives the one row "error: " and SQLite's text.
inline std::vector<std::string> rowsOf(std::string const& path, std::string const& sql)
{
    SqliteSpy::Inside const unseen(sqliteSpy());
    std::vector<std::string> rows;
    sqlite3* db = nullptr;
    sqlite3_open(path.c_str(), &db);
    sqlite3_busy_timeout(db, 300000);
    auto const add = [](void* all, int count, char** values, char**) {
        std::string row;
        for (int i = 0; i < count; ++i)
            row += (i ? "|" : "") + std::string(values[i] ? values[i] : "NULL");
        static_cast<std::vector<std::string>*>(all)->push_back(row);
        return 0;
    };
    if (sqlite3_exec(db, sql.c_str(), add, &rows, nullptr) != SQLITE_OK)
        rows.assign(1, std::string("error: ") + sqlite3_errmsg(db));
    sqlite3_close(db);
    sqliteSpy().open.erase(db);
    return rows;
}

// SQLite's texts for a bind that the spy makes fail, and for a call that it does not pass on.
constexpr char no_place[] = ": column index out of range";
constexpr char not_run[] = ": not an error";

inline std::string notPrepared(std::string const& query, char const* why)
{
    return "Unable to prepare SQL statement for query '" + query + "'" + why;
}

inline std::string notBound(std::string const& what, std::string const& query)
{
    return "Unable to bind parameter " + what + " SQL statement for query '" + query + "'" +
           no_place;
}

class AuthDatabaseTest : public ::testing::Test
{
protected:
    void SetUp() override
    {
        mailAuthDBSetPath(path.c_str());
        ASSERT_THAT(sql(mail_auth_schema), ::testing::IsEmpty());
        sqliteSpy().forget();
    }

    void TearDown() override
    {
        EXPECT_THAT(sqliteSpy().open, ::testing::IsEmpty()) << "a connection was left open";
        sqliteSpy().forget();
        mailAuthDBSetPath(first);
    }

    std::vector<std::string> sql(std::string const& text) const { return rowsOf(path, text); }

    // id is left out: domain, its status, name, plain password, encrypted password, status
    std::vector<std::string> users() const
    {
        return sql("SELECT d.name, d.status, u.name, u.userPassword, u.cmusaslsecretPLAIN, "
                   "u.status FROM users u JOIN domains d ON u.dom_id = d.id "
                   "ORDER BY d.name, u.name");
    }

    std::vector<std::string> domains() const
    {
        return sql("SELECT name, status FROM domains ORDER BY name");
    }

    std::vector<Report> const& reports() const { return LogRecorder::reports(); }

    // Makes the nth call of the operation fail. Checks the result and the reports, all of priority
    // 3, and that no connection is left open.
    void expectFailure(std::function<int()> const& operation, char const* call, int nth, int result,
                       std::vector<std::string> const& texts)
    {
        SCOPED_TRACE(call + std::to_string(nth));
        spy.forget();
        LogRecorder::reports().clear();
        spy.fault(call, nth);
        EXPECT_EQ(operation(), result);
        std::vector<Report> expected;
        expected.reserve(texts.size());
        for (std::string const& text : texts)
            expected.emplace_back(3, text);
        EXPECT_EQ(reports(), expected);
        EXPECT_THAT(spy.open, ::testing::IsEmpty());
    }

    SqliteSpy& spy = sqliteSpy();
    TempDir const directory;
    std::string const path = directory / "passwd.db";

private:
    char const* const first = mailAuthDB;
    LogRecorder const recorder;
};

#endif
