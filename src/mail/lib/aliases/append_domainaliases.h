// append_domainaliases - appends the alias domains of a domain to a list
//
// A change of a domain is often made for its alias domains too. names stays as it was for a domain
// without any, and after a failed query, which get_domaliases_by_domain has reported.

#ifndef MAILVEK_MAIL_LIB_ALIASES_APPEND_DOMAINALIASES_H
#define MAILVEK_MAIL_LIB_ALIASES_APPEND_DOMAINALIASES_H

#include <string>
#include <vector>

namespace orvek::mail {

void append_domainaliases_by_domain(std::vector<std::string>& names, std::string const& domain);

} // namespace orvek::mail

#endif
