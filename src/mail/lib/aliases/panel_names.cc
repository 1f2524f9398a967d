#include "mail/lib/aliases/panel_names.h"

#include "lib/report/asprintf_safe.h"
#include "lib/report/log_failure.h"

#include <cstdlib>
#include <cstring>
#include <utility>

#include <fcntl.h>

namespace {

KeptConnection* of_session = nullptr;

// Never printed, because asprintf_safe ends the process without memory.
constexpr char not_formed[] = "Unable to create database query";

// Null when the statement fails or gives no result.
MysqlResult result_of(MYSQL* my, char const* query)
{
    MysqlErrnoKeeper const keeper(my);
    if (mysql_real_query(my, query, strlen(query)) != 0)
        return nullptr;
    return MysqlResult(mysql_store_result(my));
}

// As result_of, on a connection that may be broken. Keeps errno, since the statement is tried again
// after a failure.
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

PanelSession::PanelSession()
{
    of_session = &kept;
}

PanelSession::~PanelSession()
{
    of_session = nullptr;
}

KeptConnection* PanelSession::connection()
{
    return of_session;
}

PanelNames::PanelNames(MYSQL* my)
    : given(my), kept(PanelSession::connection() ? *PanelSession::connection() : own)
{
}

MYSQL* PanelNames::connect()
{
    kept = {};
    kept.my.reset(db_connect());
    if (!kept.my)
        return log_null("Unable to connect to mysql database");
    fcntl(static_cast<int>(mysql_get_socket(kept.my.get())), F_SETFD, FD_CLOEXEC);
    return kept.my.get();
}

MYSQL* PanelNames::connection()
{
    if (given)
        return given;
    return kept.my ? kept.my.get() : connect();
}

MysqlResult PanelNames::run(char const* query)
{
    MYSQL* my = connection();
    if (!my)
        return nullptr;
    bool const may_be_broken = std::exchange(kept.used, true) && !given;
    MysqlResult result = may_be_broken ? tried_on(my, query) : result_of(my, query);
    if (!result && may_be_broken) {
        my = connect();
        if (!my)
            return nullptr;
        kept.used = true;
        result = result_of(my, query);
    }
    if (!result)
        return log_null("Unable to get data from mysql database");
    return result;
}

int PanelNames::read(char const* query, StringArray* names)
{
    MysqlResult const result = run(query);
    return result ? collect(connection(), result.get(), names) : -1;
}

CString PanelNames::escaped(char const* name)
{
    MYSQL* const my = connection();
    return my ? escaped_text(my, name) : nullptr;
}

int PanelNames::get_domaliases_by_domain(char const* domain, StringArray* aliases)
{
    constexpr char not_read[] = "Unable to get domain aliases from database for: %s";
    CString const value = escaped(domain);
    if (!value)
        return log_failure(not_read, domain);
    CString const query(asprintf_safe("SELECT da.name FROM domainaliases da JOIN domains d WHERE "
                                      "da.dom_id=d.id and d.name='%s'",
                                      value.get()));
    if (!query)
        return log_failure(not_formed);
    return read(query.get(), aliases) == -1 ? log_failure(not_read, domain) : 0;
}

int PanelNames::get_aliases_by_mailname(char const* mailname, char const* domain,
                                        StringArray* aliases)
{
    constexpr char not_read[] = "Unable to get aliases for mailname: %s@%s";
    CString const name = escaped(mailname);
    CString const value = name ? escaped(domain) : nullptr;
    if (!value)
        return log_failure(not_read, mailname, domain);
    CString const query(asprintf_safe("SELECT ma.alias FROM mail_aliases ma JOIN mail m, domains d "
                                      "WHERE ma.mn_id=m.id AND m.mail_name='%s' AND m.dom_id=d.id "
                                      "AND d.name='%s'",
                                      name.get(), value.get()));
    if (!query)
        return log_failure(not_formed);
    return read(query.get(), aliases) == -1 ? log_failure(not_read, mailname, domain) : 0;
}

int PanelNames::get_aliases_by_domain(char const* mailname, char const* domain,
                                      NamesByName* aliases)
{
    constexpr char not_read[] = "Unable to get aliases for mailname: %s@%s";
    CString const value = escaped(domain);
    if (!value)
        return log_failure(not_read, mailname, domain);
    CString const query(asprintf_safe("SELECT m.mail_name, ma.alias FROM mail_aliases ma JOIN mail "
                                      "m, domains d WHERE ma.mn_id=m.id AND m.dom_id=d.id AND "
                                      "d.name='%s'",
                                      value.get()));
    if (!query)
        return log_failure(not_formed);
    MysqlResult const result = run(query.get());
    if (!result)
        return log_failure(not_read, mailname, domain);
    while (char const* const* const row = mysql_fetch_row(result.get()))
        if (row[0] && row[1])
            (*aliases)[row[0]].emplace_back(row[1]);
    return 0;
}

int PanelNames::get_mailnames_by_domain(char const* domain, StringArray* names)
{
    constexpr char not_read[] = "Unable to get mailnames from domain: %s";
    CString const value = escaped(domain);
    if (!value)
        return log_failure(not_read, domain);
    CString const query(asprintf_safe("SELECT m.mail_name FROM mail m JOIN domains d WHERE "
                                      "m.dom_id=d.id AND d.name='%s'",
                                      value.get()));
    if (!query)
        return log_failure(not_formed);
    return read(query.get(), names) == -1 ? log_failure(not_read, domain) : 0;
}

int PanelNames::get_domain_by_domainalias(char const* alias, CString* domain)
{
    constexpr char not_read[] = "Unable to get domain by domainalias: %s";
    CString const value = escaped(alias);
    if (!value)
        return log_failure(not_read, alias);
    CString const query(asprintf_safe("SELECT d.name FROM domains d JOIN domainaliases da WHERE "
                                      "d.id=da.dom_id AND da.name='%s'",
                                      value.get()));
    if (!query)
        return log_failure(not_formed);
    StringArray names;
    if (read(query.get(), &names) == -1)
        return log_failure(not_read, alias);
    if (names && names[0]) {
        domain->reset(names[0]);
        names[0] = nullptr;
        for (char** rest = names.get() + 1; *rest; ++rest)
            free(*rest);
    }
    return 0;
}
