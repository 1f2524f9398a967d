// address_records - what the two managers share when they form records of the maps

#ifndef MAILVEK_POSTFIX_DOMAINS_ADDRESS_RECORDS_H
#define MAILVEK_POSTFIX_DOMAINS_ADDRESS_RECORDS_H

#include "postfix/maps/batch_database_helper.h"

#include <string>
#include <utility>
#include <vector>

namespace orvek::mail::postfix {

using Records = std::vector<std::pair<std::string, std::string>>;

// A batch that adds to what is in the maps and applies each change by the call that brings it.
struct AtOnce : BatchDatabaseHelper
{
    AtOnce() : BatchDatabaseHelper(true, true) {}
};

inline std::string addressIn(std::string const& domain, std::string const& localPart)
{
    return localPart + '@' + domain;
}

} // namespace orvek::mail::postfix

#endif
