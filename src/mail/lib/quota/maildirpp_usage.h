// maildirpp_usage - bytes and messages in a Maildir, from its maildirsize or by counting
//
// The first line of a maildirsize is skipped. Each other line has a size and a count, whose sums
// are the usage; sizes may be negative. The messages are counted instead when the file is missing,
// cannot be read, is longer than 5120 bytes or has any other line: see
// maildirpp_messages.h.
//
// Result: 1, or 0 with errno set and without a report.

#ifndef MAILVEK_MAIL_LIB_QUOTA_MAILDIRPP_USAGE_H
#define MAILVEK_MAIL_LIB_QUOTA_MAILDIRPP_USAGE_H

#include "mail/lib/quota/maildirpp_types.h"

// The working directory is restored.
[[nodiscard]] int get_maildirpp_usage(char const* maildir, sizequota_t* size, fcount_t* count);

// The Maildir is the working directory.
[[nodiscard]] int get_maildirpp_usage_internal(sizequota_t* size, fcount_t* count);

#endif
