// append_domainaliases - a domain's aliases, behind the names that are there
//
// What is done for a domain is often to be done for its aliases as well, which the panel's
// database knows. No result: names stays as it was for a domain without aliases and after a
// query that failed, which has been reported by get_domaliases_by_domain.

#ifndef MAILVEK_MAIL_LIB_ALIASES_APPEND_DOMAINALIASES_H
#define MAILVEK_MAIL_LIB_ALIASES_APPEND_DOMAINALIASES_H

#include <string>
#include <vector>

namespace orvek::mail {

void append_domainaliases_by_domain(std::vector<std::string>& names, std::string const& domain);

} // namespace orvek::mail

#endif
