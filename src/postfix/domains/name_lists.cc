#include "postfix/domains/name_lists.h"

#include "mail/lib/aliases/append_domainaliases.h"

namespace orvek::mail {

namespace {

NameList listOf(int result, StringArray const& names)
{
    if (result == -1)
        return std::nullopt;
    std::vector<std::string> list;
    for (char* const* name = names.get(); name && *name; ++name)
        list.emplace_back(*name);
    return list;
}

} // namespace

std::vector<std::string> aliasDomainsOrNone(std::string const& domain)
{
    std::vector<std::string> aliases;
    append_domainaliases_by_domain(aliases, domain);
    return aliases;
}

NameList aliasDomainsOrFailure(std::string const& domain)
{
    PanelNames panel(nullptr);
    StringArray names;
    int const result = panel.get_domaliases_by_domain(domain.c_str(), &names);
    return listOf(result, names);
}

NameList mailnamesOf(PanelNames& panel, std::string const& domain)
{
    StringArray names;
    int const result = panel.get_mailnames_by_domain(domain.c_str(), &names);
    return listOf(result, names);
}

NameList mailAliasesOf(PanelNames& panel, std::string const& mailname, std::string const& domain)
{
    StringArray names;
    int const result = panel.get_aliases_by_mailname(mailname.c_str(), domain.c_str(), &names);
    return listOf(result, names);
}

} // namespace orvek::mail
