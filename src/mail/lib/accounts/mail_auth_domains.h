// mail_auth_domains - the domains of the mail authentication database
//
// Each operation opens its own connection, runs one statement and closes, except while a
// MailAuthTransaction is open. 0, or -1 reported by orvek_log. An unknown domain is a success.
// Names are stored and compared byte by byte.
//
// No command calls these; they are for callers to come: mailAuthRenameDomain.

#ifndef MAILVEK_MAIL_LIB_ACCOUNTS_MAIL_AUTH_DOMAINS_H
#define MAILVEK_MAIL_LIB_ACCOUNTS_MAIL_AUTH_DOMAINS_H

#include "mail/lib/accounts/mail_auth_flags.h"

class MailAuthConnection;

// A status of 0 is enabled, 1 is disabled.
int setDomainStatus(char const* domain, int status);
int mailAuthDisableDomain(char const* domain);
int mailAuthEnableDomain(char const* domain);

// Fails when a domain already has the new name.
int mailAuthRenameDomain(char const* oldDomain, char const* newDomain);

// Removes the domain with all its users.
int mailAuthRemoveDomain(char const* domain);

// The domain's id, or -1. An unknown domain is registered, and disabled if any bit of flags is
// set. With MAIL_AUTH_DO_NOT_CHANGE it is not registered, and that -1 is not reported; all other
// failures are. A failed prepare or bind closes the caller's connection, a failed wait abandons
// it; otherwise it stays open without a statement.
long long getDomainId(char const* domain, MailAuthConnection& db, MailAuthFlagsT flags);

#endif
