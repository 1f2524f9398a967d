#include "mail/lib/aliases/mail_database_names.h"

#include "mail/lib/aliases/panel_names.h"

#include <utility>

namespace {

// Passes the list to the caller unless reading it failed.
int hand_over(int result, StringArray list, char*** names)
{
    if (result == 0)
        *names = list.release();
    return result;
}

} // namespace

int exec_mysql_query(MYSQL* my, char const* query, char*** names)
{
    StringArray list;
    int const result = PanelNames(my).read(query, &list);
    return hand_over(result, std::move(list), names);
}

int get_domaliases_by_domain(MYSQL* my, char*** aliases, char const* domain)
{
    StringArray list;
    int const result = PanelNames(my).get_domaliases_by_domain(domain, &list);
    return hand_over(result, std::move(list), aliases);
}

int get_aliases_by_mailname(MYSQL* my, char*** names, char const* mailname, char const* domain)
{
    StringArray list;
    int const result = PanelNames(my).get_aliases_by_mailname(mailname, domain, &list);
    return hand_over(result, std::move(list), names);
}

int get_mailnames_by_domain(MYSQL* my, char*** names, char const* domain)
{
    StringArray list;
    int const result = PanelNames(my).get_mailnames_by_domain(domain, &list);
    return hand_over(result, std::move(list), names);
}

int get_domain_by_domainalias(MYSQL* my, char** domain, char const* alias)
{
    CString name;
    int const result = PanelNames(my).get_domain_by_domainalias(alias, &name);
    if (name)
        *domain = name.release();
    return result;
}
