// maildirpp_usage - bytes and messages in a Maildir, by its maildirsize or by counting
//
// A maildirsize is a first line, which is passed over, and lines of a size and a count, whose
// sums are the usage; sizes may be negative. One that is missing, cannot be read, is longer than
// 5120 bytes or has any other line in it is no failure: then the messages are counted, see
// maildirpp_messages.
//
// Result: 1, or 0 with errno set and without a report.

#ifndef MAILVEK_MAIL_LIB_QUOTA_MAILDIRPP_USAGE_H
#define MAILVEK_MAIL_LIB_QUOTA_MAILDIRPP_USAGE_H

#include "mail/lib/quota/maildirpp_types.h"

// The working directory is the same again at the end.
[[nodiscard]] int get_maildirpp_usage(char const* maildir, sizequota_t* size, fcount_t* count);

// Of the Maildir that is the working directory.
[[nodiscard]] int get_maildirpp_usage_internal(sizequota_t* size, fcount_t* count);

#endif
