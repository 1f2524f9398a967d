// dbconnect_test - base of the suites of connections: makes them in each way, with what they report

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

    char message[4097] = "what was here before";
};

#endif
