#include "lib/panel/get_client.h"

#include "lib/panel/get_param.h"
#include "lib/panel/panel_query.h"
#include "lib/report/failure.h"
#include "lib/text/strlcpy.h"

#include <cstdlib>

namespace {

// Copies the address of the panel's administrator to value. Null when it is not known.
char const* admin_email(char (&value)[panel_value_size], MYSQL* my)
{
    char const* const email = get_param("admin_email", my);
    if (!email || !*email)
        return failure(nullptr, "Unable to define admin email\n");
    strlcpy(value, email, sizeof value);
    return value;
}

} // namespace

char const* get_client_email(char const* dom_id, MYSQL* my)
{
    static char value[panel_value_size];
    PanelQuery panel(my);
    if (!panel.connected())
        return failure(nullptr, "Unable to connect to the mysql database\n");
    if (!panel.run_with("select c.email from domains d, clients c \t\t\t\t\t\t\t\t\t"
                        "where d.cl_id=c.id and d.id='?'",
                        {dom_id}))
        return failure(nullptr, "Unable to define clients email: %s\n", panel.error());
    char const* const email = panel.copy_first(value);
    return email && *email ? email : admin_email(value, panel.connection());
}

unsigned int get_client_id_by_domain(char const* dom_id, MYSQL* my)
{
    PanelQuery panel(my);
    if (!panel.connected()) {
        messlog2(0, 0, "Unable to connect to the mysql database\n");
        return 0;
    }
    if (!panel.run_with("select c.id from domains d, clients c \t\t\t\t\t\t\t\t\t"
                        "where d.cl_id=c.id and d.id='?'",
                        {dom_id})) {
        messlog2(0, 0, "Unable to define client's ID: %s\n", panel.error());
        return 0;
    }
    char const* const id = panel.first_value();
    return id ? static_cast<unsigned int>(strtoul(id, nullptr, 10)) : 0;
}
