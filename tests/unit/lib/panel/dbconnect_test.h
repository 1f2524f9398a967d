// dbconnect_test - base of the suites of connections: connects in each way and checks the reports

#ifndef MAILVEK_TESTS_UNIT_LIB_PANEL_DBCONNECT_TEST_H
#define MAILVEK_TESTS_UNIT_LIB_PANEL_DBCONNECT_TEST_H

#include "lib/panel/dbconnect.h"
#include "support/panel_database_test.h"

#include <gtest/gtest.h>

#include <cstddef>
#include <string>

inline constexpr char version_query[] = "SHOW VARIABLES LIKE 'version'";

class DbConnectTest : public PanelDatabaseTest
{
protected:
    using Way = MYSQL* (*)(char*, size_t);

    // Connects and closes the handle. Returns whether there was one.
    bool connects(Way way = orvek_db_connect)
    {
        OpenMysql const my(way(message, sizeof message));
        return my != nullptr;
    }

    // Expects that each way of connecting fails with the text.
    void expectRefusal(std::string const& text)
    {
        for (Way const way : {orvek_db_connect_raw_ex, orvek_db_connect_raw, orvek_db_connect_ex,
                              orvek_db_connect, db_connect_nothrow}) {
            EXPECT_FALSE(connects(way));
            EXPECT_STREQ(message, text.c_str());
        }
    }

    // Connects with one statement replaced. True when the handle stays open.
    bool connectsWith(std::string const& statement, std::string const& other,
                      Way way = orvek_db_connect)
    {
        spy.forget();
        spy.replace(statement, other);
        return connects(way);
    }

    char message[4097] = "what was here before";
};

#endif
