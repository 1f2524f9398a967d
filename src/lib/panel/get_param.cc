#include "lib/panel/get_param.h"

#include "lib/panel/panel_query.h"
#include "lib/report/asprintf_safe.h"
#include "lib/report/owned.h"

namespace {

char const* read_value(char (&value)[panel_value_size], char const* query, MYSQL* my,
                       unsigned int column)
{
    PanelQuery panel(my);
    if (!panel.connected())
        return no_value("Unable to connect to the mysql database\n");
    if (!panel.run(query))
        return no_value("Unable to query parameter by query %s: %s\n", query, panel.error());
    char const* const found = panel.copy_first(value, column);
    return found ? found : "";
}

} // namespace

char const* get_param_query(char const* query, MYSQL* my)
{
    static char value[panel_value_size];
    return read_value(value, query, my, 0);
}

char const* get_param_simple(char const* param_name, char const* table, char const* param_col,
                             char const* val_col, MYSQL* my)
{
    CString const query(
        asprintf_safe("select %s from %s where %s='%s'", val_col, table, param_col, param_name));
    return get_param_query(query.get(), my);
}

char const* get_param(char const* par_name, MYSQL* my)
{
    return get_param_simple(par_name, "misc", "param", "val", my);
}

char const* get_param_from_bigquery(char const* query, MYSQL* my, unsigned int num)
{
    static char value[panel_value_size];
    return read_value(value, query, my, num);
}

char const* get_htype(char const* dom_id, MYSQL* my)
{
    return get_param_simple(dom_id, "domains", "id", "htype", my);
}
