// domain_filters - the element filters of the domain manager
//
// An element is in a domain when it is the domain itself or ends with "@" and the domain; with
// subdomains set, also when it ends with "." and the domain. a@d.test, @d.test and d.test are in
// d.test, a@sub.d.test only with subdomains, notd.test never. Bytes are compared exactly: a@D.test
// is not in d.test.
//
// The strings that from and to point at must outlive the run.

#ifndef MAILVEK_POSTFIX_MAPS_DOMAIN_FILTERS_H
#define MAILVEK_POSTFIX_MAPS_DOMAIN_FILTERS_H

#include <string>

namespace orvek::mail::postfix {

// Drops an element that is in the domain.
struct NotInDomainFilter
{
    std::string domain;
    bool subdomains = false;

    bool operator()(std::string const& element) const;
};

// Replaces the domain from by the domain to, in an element that is in from.
struct ReplaceDomainPart
{
    std::string const* from;
    std::string const* to;
    bool subdomains = false;

    bool operator()(std::string& element) const;
};

// Replaces the beginning of a whole value.
//
// Deliberate: bytes count, not path parts. With from set to dom, domain/x/ is rewritten as well.
struct ReplaceDomainPath
{
    std::string const* from;
    std::string const* to;

    bool operator()(std::string& value) const;
};

} // namespace orvek::mail::postfix

#endif
