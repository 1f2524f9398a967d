// mail_auth_init - creating the mail authentication database
//
// All return 0, or -1 reported by orvek_log. Setting rights needs an absolute mailAuthDB whose
// directory is below the root directory.
//
// No command calls these; they are for callers to come: mailAuthDBInit, mailAuthDBInitStyle,
// mailAuthDBSetAccess.

#ifndef MAILVEK_MAIL_LIB_ACCOUNTS_MAIL_AUTH_INIT_H
#define MAILVEK_MAIL_LIB_ACCOUNTS_MAIL_AUTH_INIT_H

#include "mail/lib/accounts/mail_auth_style.h"

#include <sys/types.h>

// Creates an empty database and the directories that lead to it. An existing database is destroyed
// first, even if the new one cannot be made.
int mailAuthDBInit();

// Sets owner, group and modes of the database's directory and of the file, which must be a
// directory and a regular file with one name, and of its write-ahead log and the index of that
// (account_files.h), if there are any. Links are not followed.
int mailAuthDBSetAccess(uid_t uid, gid_t gid, mode_t dirMode, mode_t dbMode);

// Selects the style, creates its database and sets the style's rights. An invalid style gives -1
// without a report and touches nothing. On a host without the user "postfix" no database is
// destroyed.
int mailAuthDBInitStyle(MailAuthDBStyle style);

#endif
