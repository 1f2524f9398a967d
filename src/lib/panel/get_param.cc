#include "lib/panel/get_param.h"

#include "lib/panel/panel_query.h"
#include "lib/report/asprintf_safe.h"
#include "lib/report/failure.h"
#include "lib/report/owned.h"

namespace {

constexpr char not_connected[] = "Unable to connect to the mysql database\n";

// get_param_query and the functions without a statement of their own return this buffer.
char single_value[panel_value_size];

char const* read_value(char (&value)[panel_value_size], char const* query, PanelQuery& panel,
                       unsigned int column)
{
    if (!panel.connected())
        return failure(nullptr, not_connected);
    if (!panel.run(query))
        return failure(nullptr, "Unable to query parameter by query %s: %s\n", query,
                       panel.error());
    char const* const found = panel.copy_first(value, column);
    return found ? found : "";
}

} // namespace

char const* get_param_query(char const* query, MYSQL* my)
{
    PanelQuery panel(my);
    return read_value(single_value, query, panel, 0);
}

char const* get_param_simple(char const* param_name, char const* table, char const* param_col,
                             char const* val_col, MYSQL* my)
{
    PanelQuery panel(my);
    if (!panel.connected())
        return failure(nullptr, not_connected);
    CString const escaped = escaped_text(panel.connection(), param_name);
    CString const query(
        asprintf_safe("select %s from %s where %s='%s'", val_col, table, param_col, escaped.get()));
    return read_value(single_value, query.get(), panel, 0);
}

char const* get_param(char const* par_name, MYSQL* my)
{
    return get_param_simple(par_name, "misc", "param", "val", my);
}

char const* get_param_from_bigquery(char const* query, MYSQL* my, unsigned int num)
{
    static char value[panel_value_size];
    PanelQuery panel(my);
    return read_value(value, query, panel, num);
}

char const* get_htype(char const* dom_id, MYSQL* my)
{
    return get_param_simple(dom_id, "domains", "id", "htype", my);
}
