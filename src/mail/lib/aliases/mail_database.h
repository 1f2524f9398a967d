// mail_database - one change to mail authentication, carried over aliases
//
// A mail user is reachable under each mail alias of its mailname and in each alias domain of its
// domain. Each such pair has its own row in the mail authentication database. These functions read
// the aliases from the panel's database and change one pair after the other, all in one transaction
// (mail_auth_transaction.h). Nothing is undone: the changes before a failure are committed, and the
// command is expected to be repeated. Only when the commit itself fails is nothing changed.
//
// Result: 0 when there was no alias (or mailname) to visit, 1 when all were visited, -1 after a
// failure; 0 and 1 are both successes. Failures are reported by orvek_log at priority 3, here and
// by the functions called. One operation uses one connection to the panel's database, and a new one
// only when that breaks. The number of its queries does not grow with the names.

#ifndef MAILVEK_MAIL_LIB_ALIASES_MAIL_DATABASE_H
#define MAILVEK_MAIL_LIB_ALIASES_MAIL_DATABASE_H

#include "mail/lib/accounts/mail_auth_flags.h"
#include "mail/lib/aliases/mail_database_names.h" // IWYU pragma: export

// Removes a user from a domain and its alias domains.
int rm_mname_from_domains(char const* name, char const* domain);

// Sets a user's password in a domain and its alias domains; removes the user there when the
// password is null or empty.
int set_passwd_for_domains(char const* name, char const* domain, char const* passwd,
                           MailAuthFlagsT flags);

// Calls func, which returns -1 for a failure, for a domain and its alias domains. descr names the
// action in the reports.
int domain_auth_action(char const* domain, int (*func)(char const* domain), char const* descr);

// Removes a mailname and its mail aliases from a domain and its alias domains.
int rm_mails_from_domains(char const* name, char const* domain);

// Sets the password of a mailname and its mail aliases in a domain and its alias domains.
int set_mass_postbox_passwd(char const* name, char const* domain, char const* passwd,
                            MailAuthFlagsT flags);

// Copies all users of a domain, and those of their mail aliases, to a new alias domain. A name
// without a row is skipped.
int add_domain_auth_alias(char const* domain, char const* alias);

// Removes an alias domain and its rows. 0 or -1. The panel need not know the alias domain.
int rm_domain_auth_alias(char const* alias);

#endif
