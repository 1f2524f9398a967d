// mail_auth_domains - the domains of the mail authentication database
//
// Each operation opens a connection of its own, does one statement and closes it. 0, or -1
// reported by orvek_log. An unknown domain is no failure. Names go to the database as they
// are, byte by byte.

#ifndef MAILVEK_MAIL_LIB_ACCOUNTS_MAIL_AUTH_DOMAINS_H
#define MAILVEK_MAIL_LIB_ACCOUNTS_MAIL_AUTH_DOMAINS_H

#include "mail/lib/accounts/mail_auth_flags.h"

class MailAuthConnection;

// A status of 0 is enabled, 1 is disabled.
int setDomainStatus(char const* domain, int status);
int mailAuthDisableDomain(char const* domain);
int mailAuthEnableDomain(char const* domain);

// A domain that has the new name already makes it fail.
int mailAuthRenameDomain(char const* oldDomain, char const* newDomain);

// Removes the domain with all its users.
int mailAuthRemoveDomain(char const* domain);

// The domain's id, or -1. An unknown domain is registered, as disabled when flags hold any bit;
// with MAIL_AUTH_DO_NOT_CHANGE in flags it is not, and the -1 is not reported. All other
// failures are. After a failed prepare or bind the caller's connection is closed, after a
// refused wait it is abandoned; otherwise it stays open with no statement on it.
long long getDomainId(char const* domain, MailAuthConnection& db, MailAuthFlagsT flags);

#endif
