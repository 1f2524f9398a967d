// name_lists - names from the panel's database, as lists of the upper layer
//
// The list is empty when the database has no such name. A query that fails has been reported, and
// gives no list at all where the result is a NameList.

#ifndef MAILVEK_POSTFIX_DOMAINS_NAME_LISTS_H
#define MAILVEK_POSTFIX_DOMAINS_NAME_LISTS_H

#include "mail/lib/aliases/panel_names.h"

#include <optional>
#include <string>
#include <vector>

namespace orvek::mail {

using NameList = std::optional<std::vector<std::string>>;

// The alias domains of a domain. OrNone is for work that goes on without them: it gives an empty
// list after a failure.
std::vector<std::string> aliasDomainsOrNone(std::string const& domain);
NameList aliasDomainsOrFailure(std::string const& domain);

// The caller keeps the connection for both.
NameList mailnamesOf(PanelNames& panel, std::string const& domain);
NameList mailAliasesOf(PanelNames& panel, std::string const& mailname, std::string const& domain);

} // namespace orvek::mail

#endif
