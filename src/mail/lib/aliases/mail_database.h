// mail_database - one change to mail authentication, carried over aliases
//
// A mail user is reachable under each mail alias of its mailname and each domain alias of its
// domain, and every such pair has a row of its own in the mail authentication database. These
// functions read the aliases from the panel's database and make the change for all pairs, one
// after the other. There is no way back: what was done before a failure stays done, and the
// command is expected to be repeated.
//
// Result: 0 when there was no alias (or mailname) to walk over, 1 when they were walked to the
// end, -1 after a failure; both 0 and 1 are a success. Failures are reported by orvek_log at
// priority 3, here and by the functions underneath. One operation makes one connection to the
// panel's database; only a connection that breaks is made anew.
//
// Names go into the statements to the panel as they are, without escaping.

#ifndef MAILVEK_MAIL_LIB_ALIASES_MAIL_DATABASE_H
#define MAILVEK_MAIL_LIB_ALIASES_MAIL_DATABASE_H

#include "mail/lib/accounts/mail_auth_flags.h"
#include "mail/lib/aliases/mail_database_names.h" // IWYU pragma: export

// Removes a user from a domain and its domain aliases.
int rm_mname_from_domains(char const* name, char const* domain);

// Sets a user's password on a domain and its domain aliases, or removes the user there when
// there is none: null or empty.
int set_passwd_for_domains(char const* name, char const* domain, char const* passwd,
                           MailAuthFlagsT flags);

// Applies func, which gives -1 for a failure, to a domain and its domain aliases. descr is what
// the reports say it does.
int domain_auth_action(char const* domain, int (*func)(char const* domain), char const* descr);

// Removes a mailname and its mail aliases from a domain and its domain aliases.
int rm_mails_from_domains(char const* name, char const* domain);

// Sets the password of a mailname and its mail aliases on a domain and its domain aliases.
int set_mass_postbox_passwd(char const* name, char const* domain, char const* passwd,
                            MailAuthFlagsT flags);

// Copies all users of a domain, and those of their mail aliases, to a new domain alias. Who has
// no row is passed over.
int add_domain_auth_alias(char const* domain, char const* alias);

// Removes a domain alias with its rows. 0 or -1; an alias that the panel does not know is no
// failure.
int rm_domain_auth_alias(char const* alias);

#endif
