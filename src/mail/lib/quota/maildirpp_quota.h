// maildirpp_quota - the quota of one mailbox
//
// Mail servers know nothing of @attachments, which is beside the Maildir. So the quota in the file
// is reduced by the size of @attachments.
//
// Result: 1, or 0 with errno set. Failures are reported through messlog2, which does not end the
// process, except those that write_maildirpp_maildirsize leaves to its callers.

#ifndef MAILVEK_MAIL_LIB_QUOTA_MAILDIRPP_QUOTA_H
#define MAILVEK_MAIL_LIB_QUOTA_MAILDIRPP_QUOTA_H

#include "mail/lib/quota/maildirpp_types.h"

// Writes the Maildir's maildirsize for popuser and leaves the working directory as
// write_maildirpp_maildirsize does. 0 means no quota in the file, so a quota of 0 is written as
// one byte, which stops delivery.
[[nodiscard]] int store_maildirpp_quota_raw(char const* maildir, sizequota_t quota);

// MailDomain is in UTF-8. A name that is no file name is refused with EINVAL. A quota below the
// size of the attachments stops delivery, with a warning. The working directory is restored, except
// after a failure to count the attachments.
[[nodiscard]] int store_mbox_quota(char const* MailDomain, char const* MailName, sizequota_t quota);

#endif
