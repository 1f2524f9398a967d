// maildirpp_types - sizes and counts of mail
//
// sizequota_t is a number of bytes; as a quota, a negative one means no quota. fcount_t is a
// number of messages.

#ifndef MAILVEK_MAIL_LIB_QUOTA_MAILDIRPP_TYPES_H
#define MAILVEK_MAIL_LIB_QUOTA_MAILDIRPP_TYPES_H

#include <limits>

using sizequota_t = long long;
using fcount_t = unsigned long long;

// Adds without overflow, for sizes that somebody else has written: the sum stays in range.
inline void add_size(sizequota_t* sum, sizequota_t size)
{
    if (__builtin_add_overflow(*sum, size, sum))
        *sum = size < 0 ? std::numeric_limits<sizequota_t>::min()
                        : std::numeric_limits<sizequota_t>::max();
}

#endif
