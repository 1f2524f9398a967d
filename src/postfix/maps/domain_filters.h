// domain_filters - the element filters of the domain manager, for its file alone
//
// An element is in a domain when it is the domain itself or ends with it right behind an "@"
// and, with subdomains set, also right behind a ".". With the domain d.test, a@d.test, @d.test
// and d.test are in it, a@sub.d.test only with subdomains, notd.test never. Bytes are compared
// exactly: a@D.test is not in d.test.
//
// The strings that from and to name must outlive the run.

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

// Puts the domain to in the place of the domain from, for an element that is in the latter.
struct ReplaceDomainPart
{
    std::string const* from;
    std::string const* to;
    bool subdomains = false;

    bool operator()(std::string& element) const;
};

// Replaces the beginning of a whole value.
//
// Deliberate: any beginning with the same bytes, not only whole path parts. From dom, the value
// domain/x/ is rewritten as well.
struct ReplaceDomainPath
{
    std::string const* from;
    std::string const* to;

    bool operator()(std::string& value) const;
};

} // namespace orvek::mail::postfix

#endif
