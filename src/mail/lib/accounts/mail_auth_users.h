// mail_auth_users - the users of the mail authentication database
//
// Each operation opens a connection of its own and closes it; each statement is a transaction
// of its own. 0, or -1 reported by orvek_log, unless stated otherwise. A user is named by the
// local part and the domain, which go to the database as they are, byte by byte.

#ifndef MAILVEK_MAIL_LIB_ACCOUNTS_MAIL_AUTH_USERS_H
#define MAILVEK_MAIL_LIB_ACCOUNTS_MAIL_AUTH_USERS_H

#include "mail/lib/accounts/mail_auth_flags.h"

// Both strings belong to whoever asked, and are freed with free. passwd is null for a user
// without any password.
struct passwd_type_t
{
    char* name;
    char* passwd;
    MailAuthFlagsT flags;
};

// Creates or replaces a user, with a plain or, by MAIL_AUTH_CRYPTED, an encrypted password; the
// other kind is gone afterwards. An unknown domain is registered first, as disabled with
// MAIL_DOMAIN_AUTH_DISABLED, and stays when the user then fails; a known domain keeps its status.
int mailAuthSet(char const* mailName, char const* mailDomain, char const* password,
                MailAuthFlagsT flags);

// A user or domain that does not exist is a success; so is a domain whose look-up failed, which
// has been reported then.
int mailAuthRemove(char const* mailName, char const* mailDomain);

// Within one domain, which must exist. A user that does not exist is a success; a new name that
// is taken is a failure.
int mailAuthRename(char const* oldMailName, char const* newMailName, char const* mailDomain);

// Copies password and flags. A user that does not exist is a success. A domain that this
// registers is disabled if the old one is.
int mailAuthClone(char const* oldName, char const* oldDomain, char const* newName,
                  char const* newDomain);

// Sets the password, or removes the user when there is none: null or empty.
int set_postbox_passwd(char const* mailName, char const* mailDomain, char const* password,
                       MailAuthFlagsT flags);

// 1 when found, 0 when there is no such domain or user, -1 after a failure. *data is all zero
// unless 1 is returned.
int get_user_data(passwd_type_t* data, char const* name, char const* domain);

#endif
