// mailbox_size - what a mailbox takes
//
// get_mbox_size is the size of a mailname's Maildir, by its maildirsize where that is sound, and
// of its @attachments, none of which is a size of 0. DomainName is in UTF-8. With in_blocks not
// zero the attachments are taken by the blocks that they occupy, and the Maildir still by what
// its messages hold.
//
// Failures are reported through messlog2 and end the process with status 1.

#ifndef MAILVEK_MAIL_LIB_QUOTA_MAILBOX_SIZE_H
#define MAILVEK_MAIL_LIB_QUOTA_MAILBOX_SIZE_H

#include "mail/lib/quota/maildirpp_types.h"

[[nodiscard]] sizequota_t get_mbox_size(char const* MailName, char const* DomainName,
                                        int in_blocks);

#endif
