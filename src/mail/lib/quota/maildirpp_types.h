// maildirpp_types - sizes and counts of mail
//
// A sizequota_t is a number of bytes; as a quota, a negative one means that there is none. An
// fcount_t is a number of messages.

#ifndef MAILVEK_MAIL_LIB_QUOTA_MAILDIRPP_TYPES_H
#define MAILVEK_MAIL_LIB_QUOTA_MAILDIRPP_TYPES_H

#include <limits>

using sizequota_t = long long;
using fcount_t = unsigned long long;

// Adds up sizes that somebody else has written. A sum outside of the range stays at its end.
inline void add_size(sizequota_t* sum, sizequota_t size)
{
    if (__builtin_add_overflow(*sum, size, sum))
        *sum = size < 0 ? std::numeric_limits<sizequota_t>::min()
                        : std::numeric_limits<sizequota_t>::max();
}

#endif
