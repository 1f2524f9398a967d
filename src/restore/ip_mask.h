// ip_mask - the length of a network's prefix, from its mask as the panel keeps it
//
// The mask is in dotted form, "255.255.255.0", or a number: the 32 bits of the mask, or, below
// 33, the length itself.
//
// Result: 0 to 32, or no_prefix for what is no mask of a network: a value out of range, or one
// with a bit set behind a bit that is not. A text that is neither form raises mError.

#ifndef MAILVEK_RESTORE_IP_MASK_H
#define MAILVEK_RESTORE_IP_MASK_H

#include "mysql/field.h"

namespace orvek::mail::restore {

constexpr unsigned short no_prefix = 33;

unsigned short prefixLength(mysql::Field const& mask);

} // namespace orvek::mail::restore

#endif
