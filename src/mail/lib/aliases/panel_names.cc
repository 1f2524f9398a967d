#include "mail/lib/aliases/panel_names.h"

#include "lib/report/asprintf_safe.h"
#include "lib/report/log_failure.h"

#include <cstdlib>
#include <cstring>

namespace {

// Never printed while asprintf_safe ends the process itself.
constexpr char not_formed[] = "Unable to create database query";

// Null when the statement fails or gives no result.
MysqlResult result_of(MYSQL* my, char const* query)
{
    MysqlErrnoKeeper const keeper(my);
    if (mysql_real_query(my, query, strlen(query)) != 0)
        return nullptr;
    return MysqlResult(mysql_store_result(my));
}

// The same on a connection that may be broken: its failure is not yet that of the statement.
MysqlResult tried_on(MYSQL* my, char const* query)
{
    ErrnoKeeper const keeper;
    return result_of(my, query);
}

int collect(MYSQL* my, MYSQL_RES* result, StringArray* names)
{
    StringArrayBuilder array;
    while (char const* const* const row = mysql_fetch_row(result))
        if (row[0] && !array.append(row[0]))
            return log_failure("Query error: %s", mysql_error(my));
    *names = array.release();
    return 0;
}

} // namespace

MysqlResult PanelNames::run(char const* query)
{
    MysqlResult result;
    if (given)
        result = result_of(given, query);
    else if (own)
        result = tried_on(own.get(), query);
    if (!result && !given) {
        own.reset();
        own.reset(db_connect());
        if (!own)
            return log_null("Unable to connect to mysql database");
        result = result_of(own.get(), query);
    }
    if (!result)
        return log_null("Unable to get data from mysql database");
    return result;
}

int PanelNames::read(char const* query, StringArray* names)
{
    MysqlResult const result = run(query);
    return result ? collect(given ? given : own.get(), result.get(), names) : -1;
}

int PanelNames::get_domaliases_by_domain(char const* domain, StringArray* aliases)
{
    CString const query(asprintf_safe("SELECT da.name FROM domainaliases da JOIN domains d WHERE "
                                      "da.dom_id=d.id and d.name='%s'",
                                      domain));
    if (!query)
        return log_failure(not_formed);
    if (read(query.get(), aliases) == -1)
        return log_failure("Unable to get domain aliases from database for: %s", domain);
    return 0;
}

int PanelNames::get_aliases_by_mailname(char const* mailname, char const* domain,
                                        StringArray* aliases)
{
    CString const query(asprintf_safe("SELECT ma.alias FROM mail_aliases ma JOIN mail m, domains d "
                                      "WHERE ma.mn_id=m.id AND m.mail_name='%s' AND m.dom_id=d.id "
                                      "AND d.name='%s'",
                                      mailname, domain));
    if (!query)
        return log_failure(not_formed);
    if (read(query.get(), aliases) == -1)
        return log_failure("Unable to get aliases for mailname: %s@%s", mailname, domain);
    return 0;
}

int PanelNames::get_mailnames_by_domain(char const* domain, StringArray* names)
{
    CString const query(asprintf_safe("SELECT m.mail_name FROM mail m JOIN domains d WHERE "
                                      "m.dom_id=d.id AND d.name='%s'",
                                      domain));
    if (!query)
        return log_failure(not_formed);
    if (read(query.get(), names) == -1)
        return log_failure("Unable to get mailnames from domain: %s", domain);
    return 0;
}

int PanelNames::get_domain_by_domainalias(char const* alias, CString* domain)
{
    CString const query(asprintf_safe("SELECT d.name FROM domains d JOIN domainaliases da WHERE "
                                      "d.id=da.dom_id AND da.name='%s'",
                                      alias));
    if (!query)
        return log_failure(not_formed);
    StringArray names;
    if (read(query.get(), &names) == -1)
        return log_failure("Unable to get domain by domainalias: %s", alias);
    if (names && names[0]) {
        domain->reset(names[0]);
        names[0] = nullptr;
        for (char** rest = names.get() + 1; *rest; ++rest)
            free(*rest);
    }
    return 0;
}
