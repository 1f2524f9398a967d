// panel_names - names that the panel's database holds, as lists of the upper layer
//
// A list that the database has nothing for is empty. Failures: PostfixDatabaseError, behind the
// report of the query.

#ifndef MAILVEK_POSTFIX_PANEL_NAMES_H
#define MAILVEK_POSTFIX_PANEL_NAMES_H

#include <string>
#include <vector>

namespace orvek::mail {

// Appends the alias domains of the domain.
void append_domainaliases_by_domain(std::vector<std::string>& names, std::string const& domain);

} // namespace orvek::mail

#endif
