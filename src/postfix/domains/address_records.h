// address_records - how the records of the address maps are formed

#ifndef MAILVEK_POSTFIX_DOMAINS_ADDRESS_RECORDS_H
#define MAILVEK_POSTFIX_DOMAINS_ADDRESS_RECORDS_H

#include <string>
#include <utility>
#include <vector>

namespace orvek::mail::postfix {

using Records = std::vector<std::pair<std::string, std::string>>;

inline std::string addressOf(std::string const& localPart, std::string const& domain)
{
    return localPart + '@' + domain;
}

} // namespace orvek::mail::postfix

#endif
