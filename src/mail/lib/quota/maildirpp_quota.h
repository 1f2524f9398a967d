// maildirpp_quota - the quota of one mailbox
//
// What the files in @attachments, which lies beside the Maildir, take is deducted from a quota
// that is set: mail servers know nothing of them.
//
// Result: 1, or 0 with errno set. Failures are reported through messlog2, which does not end the
// process, but for those that write_maildirpp_maildirsize leaves to its callers.

#ifndef MAILVEK_MAIL_LIB_QUOTA_MAILDIRPP_QUOTA_H
#define MAILVEK_MAIL_LIB_QUOTA_MAILDIRPP_QUOTA_H

#include "mail/lib/quota/maildirpp_types.h"

// Writes the Maildir's maildirsize, as popuser's, and leaves the working directory as
// write_maildirpp_maildirsize does. In the file 0 is no quota, so a quota of 0 becomes one of a
// single byte, which stops delivery.
[[nodiscard]] int store_maildirpp_quota_raw(char const* maildir, sizequota_t quota);

// MailDomain is in UTF-8. A quota below what the attachments take stops delivery, and a warning
// says so. The working directory is the same again at the end, except after a failure to count
// the attachments.
[[nodiscard]] int store_mbox_quota(char const* MailDomain, char const* MailName, sizequota_t quota);

#endif
