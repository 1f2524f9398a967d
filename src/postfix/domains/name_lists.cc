#include "postfix/domains/name_lists.h"

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

NameList domainAliasesOf(std::string const& domain)
{
    PanelNames panel(nullptr);
    StringArray names;
    int const result = panel.domain_aliases(domain.c_str(), &names);
    return listOf(result, names);
}

NameList mailnamesOf(PanelNames& panel, std::string const& domain)
{
    StringArray names;
    int const result = panel.mailnames(domain.c_str(), &names);
    return listOf(result, names);
}

NameList mailAliasesOf(PanelNames& panel, std::string const& mailname, std::string const& domain)
{
    StringArray names;
    int const result = panel.mail_aliases(mailname.c_str(), domain.c_str(), &names);
    return listOf(result, names);
}

} // namespace orvek::mail
