#include "postfix/maps/domain_filters.h"

#include <string_view>

namespace orvek::mail::postfix {

namespace {

bool isInDomain(std::string_view element, std::string_view domain, bool subdomains)
{
    if (!element.ends_with(domain))
        return false;
    if (element.size() == domain.size())
        return true;
    char const before = element[element.size() - domain.size() - 1];
    return before == '@' || (subdomains && before == '.');
}

} // namespace

bool NotInDomainFilter::operator()(std::string const& element) const
{
    return !isInDomain(element, domain, subdomains);
}

bool ReplaceDomainPart::operator()(std::string& element) const
{
    if (isInDomain(element, *from, subdomains))
        element.replace(element.size() - from->size(), from->size(), *to);
    return true;
}

bool ReplaceDomainPath::operator()(std::string& value) const
{
    if (value.starts_with(*from))
        value.replace(0, from->size(), *to);
    return true;
}

} // namespace orvek::mail::postfix
