#include "lib/panel/get_domain.h"

#include "lib/names/idn.h"
#include "lib/names/idn_error.h"
#include "lib/panel/panel_query.h"
#include "lib/report/asprintf_safe.h"
#include "lib/report/failure.h"
#include "lib/report/owned.h"
#include "lib/text/string.h"
#include "lib/text/strlcpy.h"

#include <cerrno>
#include <cstdio>
#include <cstdlib>
#include <cstring>

int get_dom_status(char const* dom_id, unsigned int* status, MYSQL* my)
{
    PanelQuery panel(my);
    if (!panel.run_with("select status from domains where id=\"?\"", {dom_id}))
        return failure(-1, "Unable to get status for domain with id=\"%s\": %s", dom_id,
                       panel.error());
    if (!panel.has_row())
        return failure(-1,
                       "Unable to get status for domain with id=\"%s\": such domain is not exist.",
                       dom_id);
    if (char const* const value = panel.first_value())
        // A text that is not a number keeps the status: NOLINTNEXTLINE(cert-err34-c)
        static_cast<void>(sscanf(value, "%u", status));
    return 0;
}

char const* get_dom_param(char const* dom_id, char const* par_name, MYSQL* my)
{
    static char value[panel_value_size];
    PanelQuery panel(my);
    if (!panel.connected())
        return failure(nullptr, "Unable to connect to mysql database\n");
    if (!panel.run_with("select val from dom_param where dom_id='?' and param='?'",
                        {dom_id, par_name}))
        return failure(nullptr, "Unable to query domain parameter %s: %s\n", par_name,
                       panel.error());
    return panel.copy_first(value);
}

char const* get_DomainService_Parameter(char const* dom_id, char const* service,
                                        char const* par_name, MYSQL* my)
{
    static char value[panel_value_size];
    PanelQuery panel(my);
    if (!panel.connected())
        return failure(nullptr, "Unable to connect to the mysql database\n");
    if (!panel.run_with("select r.value from DomainServices s, Parameters r \t\t\t\t where "
                        "s.dom_id='?' and s.type='?' and s.parameters_id=r.id  and "
                        "r.parameter='?'",
                        {dom_id, service, par_name}))
        return failure(nullptr, "Unable to query domain parameter %s: %s\n", par_name,
                       panel.error());
    return panel.copy_first(value);
}

char const* get_dom_Limit(char const* dom_id, char const* lim_name, MYSQL* my)
{
    static char value[panel_value_size];
    PanelQuery panel(my);
    if (!panel.connected())
        return failure(nullptr, "Unable to connect to the mysql database\n");
    if (!panel.run_with("select l.value from domains d, Limits l \t\t\t\t where d.id='?' and "
                        "d.limits_id=l.id  and l.limit_name='?'",
                        {dom_id, lim_name}))
        return failure(nullptr, "Unable to query domain limit %s: %s\n", lim_name, panel.error());
    return panel.copy_first(value);
}

int get_www_prefix(char const* dom_id, MYSQL* my)
{
    PanelQuery panel(my);
    if (!panel.connected())
        return failure(0, "Unable to connect to the mysql database\n");
    if (!panel.run_with("select * from domains d, dns_zone z, dns_recs r \t\twhere d.id='?' and "
                        "d.dns_zone_id=z.id and r.dns_zone_id=z.id \t\tand ((r.type='A') or "
                        "(r.type='CNAME')) \t\tand left(r.host,4)='www.'",
                        {dom_id}))
        return failure(0, "Unable to query www prefix: %s\n", panel.error());
    if (panel.has_row())
        return 1;
    if (!panel.run_with("select * from subdomains \t\t\twhere dom_id='?' and name='www'", {dom_id}))
        return failure(0, "Unable to query www subdomain: %s\n", panel.error());
    return panel.has_row() ? 1 : 0;
}

char const* get_dom_id_noerr(char const* dom_name, int noerr, MYSQL* my)
{
    static char value[panel_value_size];
    CString const ascii(idn_toascii(dom_name));
    if (!ascii)
        fatal("idn_toascii() failed: %s", idn_strerror(idn_errno));
    PanelQuery panel(my);
    if (!panel.connected())
        fatal("Unable to connect to the mysql database\n");
    if (!panel.run_with("select id from domains where name='?'", {ascii.get()}))
        fatal("Unable to query domain ID: %s\n", panel.error());
    char const* const id = panel.copy_first(value);
    if (!id && !noerr)
        fatal("get_dom_id(): domains record not found in DB for '%s'\n", dom_name);
    return id;
}

char const* get_dom_id(char const* dom_name, MYSQL* my)
{
    return get_dom_id_noerr(dom_name, 0, my);
}

char const* get_case_dom_name(char const* dom_name)
{
    static char name[panel_value_size];
    strlcpy(name, dom_name, sizeof name);
    return strtolower(name);
}

char const* get_exist_case_dom_name(char const* dom_name, MYSQL* my)
{
    PanelQuery panel(my);
    if (!panel.connected())
        fatal("Unable to connect to the mysql database\n");
    if (!panel.run_with("select name from domains where name='?'", {dom_name}))
        fatal("Unable to query domain name: %s\n", panel.error());
    char const* const name = panel.first_value();
    return name ? get_case_dom_name(name) : nullptr;
}

char const* get_dns_zone_id(char const* dom_id, MYSQL* my)
{
    static char value[panel_value_size];
    PanelQuery panel(my);
    // Deliberate: the report names another function.
    if (!panel.connected())
        return failure(nullptr, "get_ip_address: Unable to connect to the mysql database");
    if (!panel.run_with("select dns_zone_id from domains where id='?'", {dom_id}))
        return failure(nullptr, "Unable to query dns_zone_id: %s\n", panel.error());
    return panel.copy_first(value);
}

char const* get_dom_id_by_alias(char const* alias_name, MYSQL* my)
{
    static char value[panel_value_size];
    constexpr char query[] = "SELECT dom_id from domainaliases where name='?'";
    constexpr size_t around = sizeof query - sizeof "?";
    if (around + strlen(alias_name) >= panel_value_size)
        return failure(nullptr, "domain alias '%s' is too long\n", alias_name);
    PanelQuery panel(my);
    // Deliberate: a letter is missing from the function's name in this report.
    if (!panel.connected())
        return failure(nullptr, "get_do_id_by_alias: Unable to connect to the mysql database");
    if (!panel.run_with(query, {alias_name}))
        return failure(nullptr, "SQL query error: %s\n", panel.error());
    return panel.copy_first(value);
}

long get_free_id(char const* database, MYSQL* my)
{
    PanelQuery panel(my);
    if (!panel.connected())
        return failure(0, "Unable to connect to the mysql database\n");
    // A table's name cannot be quoted as a value can: callers must pass a fixed one.
    CString const query(asprintf_safe("SELECT max(id) FROM %s", database));
    if (!panel.run(query.get()))
        return failure(0, "Unable to define max id: %s", panel.error());
    char const* const highest = panel.first_value();
    long id = highest ? strtol(highest, nullptr, 10) : 0;
    if (__builtin_add_overflow(id, 1, &id)) {
        errno = ERANGE;
        return failure(0, "Unable to define max id: %s", strerror(ERANGE));
    }
    return id;
}
