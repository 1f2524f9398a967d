// panel_query - one statement after the other on a connection to the panel's database
//
// The connection is the caller's. When that is null it is one of db_connect's and lives as long as
// this object. A statement replaces the result of the one before. Only db_connect reports; memory
// that is missing ends the process with status 1. errno stays as the failing call left it.
//
// No command calls these; they are for callers to come: PanelQuery::has_row.

#ifndef MAILVEK_LIB_PANEL_PANEL_QUERY_H
#define MAILVEK_LIB_PANEL_PANEL_QUERY_H

#include "lib/panel/dbconnect.h"

#include <cstddef>
#include <initializer_list>

// What the results of single values fit in, with their NUL.
constexpr std::size_t panel_value_size = 4096;

class PanelQuery
{
public:
    explicit PanelQuery(MYSQL* my);

    bool connected() const { return my != nullptr; }
    MYSQL* connection() const { return my; }

    // Runs the statement and stores its result; false when it fails or has none.
    [[nodiscard]] bool run(char const* query);
    // The same with a text for each "?" of the pattern, in their order, each as it stands between
    // quotes: escaped_text. A pattern holds no other "?".
    [[nodiscard]] bool run_with(char const* pattern, std::initializer_list<char const*> texts);

    // The text of the connection's pending error.
    char const* error() const;

    // The first row's value, which lives as long as its result; null for no row, for NULL and for
    // a missing column.
    char const* first_value(unsigned int column = 0);
    // The same, copied and cut to the buffer, or null.
    char const* copy_first(char (&value)[panel_value_size], unsigned int column = 0);
    bool has_row();

private:
    OpenMysql own;
    MYSQL* my;
    MysqlResult result;
};

#endif
