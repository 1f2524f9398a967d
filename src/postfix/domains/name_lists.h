// name_lists - names that the panel's database holds, as lists of the upper layer
//
// A list that the database has nothing for is empty. A failure is no list at all; the query has
// reported it.

#ifndef MAILVEK_POSTFIX_DOMAINS_NAME_LISTS_H
#define MAILVEK_POSTFIX_DOMAINS_NAME_LISTS_H

#include "mail/lib/aliases/panel_names.h"

#include <optional>
#include <string>
#include <vector>

namespace orvek::mail {

using NameList = std::optional<std::vector<std::string>>;

NameList domainAliasesOf(std::string const& domain);

// Those that ask again and again take the connection with them.
NameList mailnamesOf(PanelNames& panel, std::string const& domain);
NameList mailAliasesOf(PanelNames& panel, std::string const& mailname, std::string const& domain);

} // namespace orvek::mail

#endif
