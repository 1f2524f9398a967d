// maildirpp_maildirsize - the file maildirsize, by which mail servers enforce a quota
//
// Counts what is in a Maildir and writes its maildirsize: a first line with the quota, sq bytes
// and cq messages, 0 standing for no quota, and a second one with what is there. The file is made
// beside the old one and renamed over it, and belongs to owner and group. Mail may be delivered
// meanwhile: then the file is dated back, past the age at which mail servers count for
// themselves.
//
// Result: 1, with the working directory left in the Maildir, which is for the caller to leave; or
// 0, with errno set and the working directory and the old file as they were. Failures to make and
// to write the new file are reported through messlog2, which does not end the process. A file
// that cannot be made is tried again four times, each after two seconds.

#ifndef MAILVEK_MAIL_LIB_QUOTA_MAILDIRPP_MAILDIRSIZE_H
#define MAILVEK_MAIL_LIB_QUOTA_MAILDIRPP_MAILDIRSIZE_H

#include "mail/lib/quota/maildirpp_types.h"

#include <sys/types.h>

[[nodiscard]] int write_maildirpp_maildirsize(char const* maildir, uid_t owner, gid_t group,
                                              sizequota_t sq, fcount_t cq);

#endif
