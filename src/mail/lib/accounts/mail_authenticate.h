// mail_authenticate - the mail authentication database
//
// The mail server's SASL and its POP3 and IMAP daemons read their users from one SQLite file.
// This is the whole access to it: where it lies and how it is made, its users and its domains,
// and the walks over it. Nothing is held open between two calls.

#ifndef MAILVEK_MAIL_LIB_ACCOUNTS_MAIL_AUTHENTICATE_H
#define MAILVEK_MAIL_LIB_ACCOUNTS_MAIL_AUTHENTICATE_H

#include "mail/lib/accounts/mail_auth_detect.h"  // IWYU pragma: export
#include "mail/lib/accounts/mail_auth_domains.h" // IWYU pragma: export
#include "mail/lib/accounts/mail_auth_flags.h"   // IWYU pragma: export
#include "mail/lib/accounts/mail_auth_init.h"    // IWYU pragma: export
#include "mail/lib/accounts/mail_auth_iterate.h" // IWYU pragma: export
#include "mail/lib/accounts/mail_auth_style.h"   // IWYU pragma: export
#include "mail/lib/accounts/mail_auth_users.h"   // IWYU pragma: export

#endif
