// ip_mask - the prefix length of a network, from its mask in the panel's database
//
// The mask is dotted, "255.255.255.0", or a number. A number below 33 is the length itself, any
// other the 32 bits of the mask.
//
// Result: 0 to 32; no_prefix for a value out of range and for a mask whose ones are not all at its
// left end. A text in neither form raises mError.
//
// No command calls these; they are for callers to come: prefixLength.

#ifndef MAILVEK_RESTORE_IP_MASK_H
#define MAILVEK_RESTORE_IP_MASK_H

#include "mysql/field.h"

namespace orvek::mail::restore {

constexpr unsigned short no_prefix = 33;

unsigned short prefixLength(mysql::Field const& mask);

} // namespace orvek::mail::restore

#endif
