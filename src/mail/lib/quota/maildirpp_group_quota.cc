#include "mail/lib/quota/maildirpp_group_quota.h"

#include "lib/names/idn.h"
#include "lib/panel/dbconnect.h"
#include "lib/panel/get.h"
#include "lib/report/asprintf_safe.h"
#include "lib/report/failure.h"
#include "lib/report/form_path.h"
#include "lib/report/owned.h"
#include "mail/lib/quota/maildirpp_quota.h"

#include <cerrno>
#include <cstdio>
#include <cstdlib>
#include <cstring>

namespace {

constexpr sizequota_t no_quota = -1;

// The number in text, or otherwise when text is null or not a number.
sizequota_t number(char const* text, sizequota_t otherwise)
{
    sizequota_t value = 0;
    // A number that is too large becomes the largest: NOLINTNEXTLINE(cert-err34-c)
    return text && sscanf(text, "%lld", &value) == 1 ? value : otherwise;
}

CString connect_and_escape(OpenMysql* my, char const* domain)
{
    my->reset(db_connect());
    if (!*my) {
        static_cast<void>(failure(0, "unable to connect to MySQL"));
        return nullptr;
    }
    return CString(mysql_escape_mail_entity(my->get(), domain));
}

// run() and stored_result() set errno themselves: the client library leaves a meaningless one.
bool run(MYSQL* my, char const* query)
{
    bool const done = mysql_real_query(my, query, strlen(query)) == 0;
    errno = done ? 0 : EIO;
    return done;
}

MysqlResult stored_result(MYSQL* my)
{
    MysqlResult result(mysql_store_result(my));
    errno = result ? 0 : EIO;
    return result;
}

MysqlResult query_mailnames(MYSQL* my, char const* query)
{
    MysqlResult result = run(my, query) ? stored_result(my) : nullptr;
    if (!result)
        static_cast<void>(failure(0, "Unable to query mailnames: %s", mysql_error(my)));
    return result;
}

int query_domain_id(MYSQL* my, char const* escaped, MysqlResult* result)
{
    CString const query(asprintf_safe("SELECT id FROM domains WHERE name='%s'", escaped));
    if (!run(my, query.get()))
        return failure(0, "Unable to query domain ID: %s", mysql_error(my));
    *result = stored_result(my);
    if (!*result)
        return failure(0, "Unable to get domain ID query result: %s", mysql_error(my));
    return 1;
}

} // namespace

char* mysql_escape_mail_entity(MYSQL* my, char const* entity)
{
    CString const ascii(idn_toascii(entity));
    if (!ascii) {
        errno = EINVAL;
        return nullptr;
    }
    std::size_t const length = strlen(ascii.get());
    auto* const escaped = static_cast<char*>(malloc(2 * length + 1));
    if (escaped)
        mysql_real_escape_string(my, escaped, ascii.get(), length);
    return escaped;
}

int rm_mbox_quota(char const* MailDomain, char const* MailName)
{
    OpenMysql my;
    CString const escaped = connect_and_escape(&my, MailDomain);
    MysqlResult result;
    if (!escaped || query_domain_id(my.get(), escaped.get(), &result) == 0)
        return 0;
    char const* const* const row = mysql_fetch_row(result.get());
    if (!row) {
        errno = ENODATA;
        return failure(0, "No such domain %s", MailDomain);
    }
    sizequota_t const limit = number(get_dom_Limit(row[0], "mbox_quota", my.get()), no_quota);
    return store_mbox_quota(MailDomain, MailName, limit);
}

int store_default_mbox_quota(char const* DomainName, sizequota_t quota)
{
    OpenMysql my;
    CString const escaped = connect_and_escape(&my, DomainName);
    if (!escaped)
        return 0;
    char query[path_size];
    if (!form_path(query,
                   "SELECT m.mail_name, m.mbox_quota FROM mail m, domains d WHERE d.id = m.dom_id "
                   "AND d.name='%s' ",
                   escaped.get()))
        return failure(0, "domain name is too long to fit query buffer");
    MysqlResult const result = query_mailnames(my.get(), query);
    if (!result)
        return 0;
    while (char const* const* const row = mysql_fetch_row(result.get())) {
        if (number(row[1], no_quota) == no_quota &&
            store_mbox_quota(DomainName, row[0], quota) == 0)
            return failure(0, "unable to set default mbox quota for domain '%s' (processing '%s')",
                           DomainName, row[0]);
    }
    return 1;
}

int rm_default_mbox_quota(char const* DomainName)
{
    return store_default_mbox_quota(DomainName, no_quota);
}

int store_domain_quota(char const* MailDomain, sizequota_t quota)
{
    return store_default_mbox_quota(MailDomain, quota);
}

int rm_domain_quota(char const* MailDomain)
{
    return rm_default_mbox_quota(MailDomain);
}
