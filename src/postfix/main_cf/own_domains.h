// own_domains - the domains that Postfix delivers to the host itself
//
// isLocalDomain is true for localhost.localdomain and for whatever mydestination holds, its tables
// included. isOwnDomain is true for the host's name and Postfix's myhostname too. Case does not
// count. An own domain must never become a virtual domain or an alias domain: the standard
// addresses of every domain lead there.
//
// Each asks postconf once, and postmap once for each table of mydestination. An element that is a
// file of names is not looked into.
//
// Failures: PostfixConfigurationError of postconf, and what starting either program raises.

#ifndef MAILVEK_POSTFIX_MAIN_CF_OWN_DOMAINS_H
#define MAILVEK_POSTFIX_MAIN_CF_OWN_DOMAINS_H

#include <string>

namespace orvek::mail::postfix {

bool isLocalDomain(std::string const& domain);
bool isOwnDomain(std::string const& domain);

} // namespace orvek::mail::postfix

#endif
