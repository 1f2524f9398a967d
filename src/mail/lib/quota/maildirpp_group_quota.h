// maildirpp_group_quota - quotas that come from the panel's database
//
// Domains are in UTF-8. A mailbox whose mbox_quota in the panel's database is -1, or not a
// number, has no quota of its own and follows its domain.
//
// Result: 1, or 0 with errno set after a report through messlog2, which does not end the
// process. The only failure without a report is a domain without an ASCII form, with EINVAL. A
// query that fails gives EIO, an unknown domain ENODATA. The work ends at the first failure;
// mailboxes before it keep their new quota.
//
// No command calls these; they are for callers to come: rm_default_mbox_quota, rm_domain_quota.

#ifndef MAILVEK_MAIL_LIB_QUOTA_MAILDIRPP_GROUP_QUOTA_H
#define MAILVEK_MAIL_LIB_QUOTA_MAILDIRPP_GROUP_QUOTA_H

#include "mail/lib/quota/maildirpp_types.h"

#include <mysql.h>

// Gives a mailbox the limit mbox_quota of its domain, or no quota when the domain has no limit.
[[nodiscard]] int rm_mbox_quota(char const* MailDomain, char const* MailName);

// Gives a quota to all mailboxes of a domain that have no quota of their own. A domain that the
// database does not know has no mailboxes, which is not a failure.
[[nodiscard]] int store_default_mbox_quota(char const* DomainName, sizequota_t quota);
[[nodiscard]] int rm_default_mbox_quota(char const* DomainName);

// The same as the two above.
[[nodiscard]] int store_domain_quota(char const* MailDomain, sizequota_t quota);
[[nodiscard]] int rm_domain_quota(char const* MailDomain);

// The ASCII form of a name, escaped to stand between quotes in a statement on that connection.
// The caller frees it. Null without a report: EINVAL when there is no such form, or ENOMEM.
[[nodiscard]] char* mysql_escape_mail_entity(MYSQL* my, char const* entity);

#endif
