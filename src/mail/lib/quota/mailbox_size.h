// mailbox_size - the size of a mailbox
//
// get_mbox_size adds the size of a mailname's Maildir, from its maildirsize when that is valid, and
// the size of its @attachments, which is 0 when the directory is missing. DomainName is in UTF-8.
// With in_blocks not zero, attachments count by the blocks that they take; the Maildir always
// counts by the bytes of its messages.
//
// Failures are reported through messlog2 and end the process with status 1.

#ifndef MAILVEK_MAIL_LIB_QUOTA_MAILBOX_SIZE_H
#define MAILVEK_MAIL_LIB_QUOTA_MAILBOX_SIZE_H

#include "mail/lib/quota/maildirpp_types.h"

[[nodiscard]] sizequota_t get_mbox_size(char const* MailName, char const* DomainName,
                                        int in_blocks);

#endif
