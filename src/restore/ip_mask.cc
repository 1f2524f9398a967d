#include "restore/ip_mask.h"

#include <bit>
#include <cstdint>
#include <limits>

#include <arpa/inet.h>

namespace orvek::mail::restore {

namespace {

// no_prefix for a mask with a gap: counting its ones would whitelist strangers.
unsigned short prefixOf(std::uint32_t mask)
{
    int const ones = std::countl_one(mask);
    return ones == std::popcount(mask) ? static_cast<unsigned short>(ones) : no_prefix;
}

} // namespace

unsigned short prefixLength(mysql::Field const& mask)
{
    std::string const& text = mask;
    in_addr dotted;
    if (inet_pton(AF_INET, text.c_str(), &dotted) == 1)
        return prefixOf(ntohl(dotted.s_addr));
    long const number = mask;
    if (number < 0 || number > std::numeric_limits<std::uint32_t>::max())
        return no_prefix;
    if (number < no_prefix)
        return static_cast<unsigned short>(number);
    return prefixOf(static_cast<std::uint32_t>(number));
}

} // namespace orvek::mail::restore
