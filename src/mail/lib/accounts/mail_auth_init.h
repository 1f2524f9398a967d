// mail_auth_init - making the mail authentication database anew
//
// All return 0, or -1 reported by orvek_log. mailAuthDB must be an absolute path below the root
// directory where rights are set.

#ifndef MAILVEK_MAIL_LIB_ACCOUNTS_MAIL_AUTH_INIT_H
#define MAILVEK_MAIL_LIB_ACCOUNTS_MAIL_AUTH_INIT_H

#include "mail/lib/accounts/mail_auth_style.h"

#include <sys/types.h>

// Creates an empty database and the directories that lead to it. A database that exists is
// destroyed first, whatever happens then.
int mailAuthDBInit();

// Owner, group and modes of the database's directory and of the file.
int mailAuthDBSetAccess(uid_t uid, gid_t gid, mode_t dirMode, mode_t dbMode);

// Selects the style, creates its database and sets the style's rights. For a style without a
// database nothing is touched or reported; without the owner, the user "postfix", no database
// is destroyed.
int mailAuthDBInitStyle(MailAuthDBStyle style);

#endif
