// maildirpp_maildirsize - the file maildirsize, from which mail servers enforce a quota
//
// Counts a Maildir and writes its maildirsize. The first line is the quota, sq bytes and cq
// messages, where 0 means no quota; the second is the count. A new file in tmp is renamed over the
// old one and belongs to owner and group. If the Maildir changes during the count, the file is
// dated back, so that mail servers count again.
//
// Result: 1, and the working directory is then the Maildir: the caller has to leave it. Or 0 with
// errno set, and the working directory and the old file are unchanged. Failures to make and to
// write the new file are reported through messlog2, which does not end the process. The tool tries
// to make the file five times, two seconds apart.

#ifndef MAILVEK_MAIL_LIB_QUOTA_MAILDIRPP_MAILDIRSIZE_H
#define MAILVEK_MAIL_LIB_QUOTA_MAILDIRPP_MAILDIRSIZE_H

#include "mail/lib/quota/maildirpp_types.h"

#include <sys/types.h>

[[nodiscard]] int write_maildirpp_maildirsize(char const* maildir, uid_t owner, gid_t group,
                                              sizequota_t sq, fcount_t cq);

#endif
