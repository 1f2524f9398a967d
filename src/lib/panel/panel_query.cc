#include "lib/panel/panel_query.h"

#include "lib/report/owned.h"
#include "lib/text/strlcpy.h"

#include <cstring>
#include <string>

PanelQuery::PanelQuery(MYSQL* given)
    : own(given ? nullptr : db_connect()), my(given ? given : own.get())
{
}

bool PanelQuery::run(char const* query)
{
    result.reset();
    MysqlErrnoKeeper const keeper(my);
    if (mysql_real_query(my, query, strlen(query)) == 0)
        result.reset(mysql_store_result(my));
    return result != nullptr;
}

bool PanelQuery::run_with(char const* pattern, std::initializer_list<char const*> texts)
{
    std::string query;
    auto text = texts.begin();
    for (; *pattern != '\0'; ++pattern)
        if (*pattern == '?' && text != texts.end())
            query += escaped_text(my, *text++).get();
        else
            query += *pattern;
    return run(query.c_str());
}

char const* PanelQuery::error() const
{
    return mysql_error(my);
}

char const* PanelQuery::first_value(unsigned int column)
{
    mysql_data_seek(result.get(), 0);
    char const* const* const row = mysql_fetch_row(result.get());
    return row && column < mysql_num_fields(result.get()) ? row[column] : nullptr;
}

char const* PanelQuery::copy_first(char (&value)[panel_value_size], unsigned int column)
{
    char const* const first = first_value(column);
    if (!first)
        return nullptr;
    strlcpy(value, first, sizeof value);
    return value;
}

bool PanelQuery::has_row()
{
    return mysql_num_rows(result.get()) > 0;
}
