// mail_auth_users - the users of the mail authentication database
//
// Each operation opens its own connection and closes it, and each statement is its own transaction,
// except while a MailAuthTransaction is open.
// 0, or -1 reported by orvek_log, unless stated otherwise. A user is identified by local part and
// domain, which are stored and compared byte by byte.

#ifndef MAILVEK_MAIL_LIB_ACCOUNTS_MAIL_AUTH_USERS_H
#define MAILVEK_MAIL_LIB_ACCOUNTS_MAIL_AUTH_USERS_H

#include "mail/lib/accounts/mail_auth_flags.h"

// The caller frees both strings with free. passwd is null for a user without a password.
struct passwd_type_t
{
    char* name;
    char* passwd;
    MailAuthFlagsT flags;
};

// Creates or replaces a user with a plain password, or an encrypted one by MAIL_AUTH_CRYPTED; the
// password of the other kind is deleted. An unknown domain is registered first, as disabled with
// MAIL_DOMAIN_AUTH_DISABLED, and stays even if the user cannot be added. A known domain keeps its
// status.
int mailAuthSet(char const* mailName, char const* mailDomain, char const* password,
                MailAuthFlagsT flags);

// A missing user or domain is a success. So is a failed look-up of the domain, which is reported.
int mailAuthRemove(char const* mailName, char const* mailDomain);

// Renames within one domain, which must exist. A missing user is a success, a new name that is
// taken a failure.
int mailAuthRename(char const* oldMailName, char const* newMailName, char const* mailDomain);

// Copies password and flags. A missing user is a success. If the new domain has to be registered,
// it is disabled when the old one is.
int mailAuthClone(char const* oldName, char const* oldDomain, char const* newName,
                  char const* newDomain);

// Sets the password; removes the user when the password is null or empty.
int set_postbox_passwd(char const* mailName, char const* mailDomain, char const* password,
                       MailAuthFlagsT flags);

// 1 when found, 0 when the domain or user does not exist, -1 after a failure. *data is all zero
// unless the result is 1.
int get_user_data(passwd_type_t* data, char const* name, char const* domain);

#endif
