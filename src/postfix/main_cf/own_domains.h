// own_domains - the domains that Postfix delivers to the host itself
//
// isOwnDomain is true for localhost.localdomain, for the host's name, for Postfix's myhostname and
// for whatever mydestination holds, its tables included. Case does not count. Such a domain must
// never become a virtual domain or an alias domain: the standard addresses of every domain lead
// there.
//
// It asks postconf once, and postmap once for each table of mydestination. An element that is a
// file of names is not looked into.
//
// Failures: PostfixConfigurationError of postconf, and what starting either program raises.

#ifndef MAILVEK_POSTFIX_MAIN_CF_OWN_DOMAINS_H
#define MAILVEK_POSTFIX_MAIN_CF_OWN_DOMAINS_H

#include <string>

namespace orvek::mail::postfix {

bool isOwnDomain(std::string const& domain);

} // namespace orvek::mail::postfix

#endif
