// maildirpp_maildirsize - the file maildirsize, by which mail servers enforce a quota
//
// Counts what a Maildir holds and writes its maildirsize. The first line is the quota, sq bytes
// and cq messages, where 0 means no quota; the second is what the Maildir holds. The file is made
// beside the old one, renamed over it, and belongs to owner and group. When mail is delivered
// meanwhile, the file is dated back, past the age at which mail servers count for themselves.
//
// Result: 1, with the working directory left in the Maildir for the caller to leave; or 0, with
// errno set and both the working directory and the old file as they were. Failures to make and
// to write the new file are reported through messlog2, which does not end the process. Making
// the file is tried five times, two seconds apart.

#ifndef MAILVEK_MAIL_LIB_QUOTA_MAILDIRPP_MAILDIRSIZE_H
#define MAILVEK_MAIL_LIB_QUOTA_MAILDIRPP_MAILDIRSIZE_H

#include "mail/lib/quota/maildirpp_types.h"

#include <sys/types.h>

[[nodiscard]] int write_maildirpp_maildirsize(char const* maildir, uid_t owner, gid_t group,
                                              sizequota_t sq, fcount_t cq);

#endif
