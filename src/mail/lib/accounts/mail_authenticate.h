// mail_authenticate - the mail authentication database
//
// SASL of the mail server and the POP3 and IMAP daemons read their users from one SQLite file.
// These headers are the only access to it: its path and creation, its users and domains, and
// iteration over them. The file is not open between two calls, except in a transaction.

#ifndef MAILVEK_MAIL_LIB_ACCOUNTS_MAIL_AUTHENTICATE_H
#define MAILVEK_MAIL_LIB_ACCOUNTS_MAIL_AUTHENTICATE_H

#include "mail/lib/accounts/mail_auth_detect.h"      // IWYU pragma: export
#include "mail/lib/accounts/mail_auth_domains.h"     // IWYU pragma: export
#include "mail/lib/accounts/mail_auth_flags.h"       // IWYU pragma: export
#include "mail/lib/accounts/mail_auth_init.h"        // IWYU pragma: export
#include "mail/lib/accounts/mail_auth_iterate.h"     // IWYU pragma: export
#include "mail/lib/accounts/mail_auth_style.h"       // IWYU pragma: export
#include "mail/lib/accounts/mail_auth_transaction.h" // IWYU pragma: export
#include "mail/lib/accounts/mail_auth_users.h"       // IWYU pragma: export

#endif
