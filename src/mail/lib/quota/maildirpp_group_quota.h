// maildirpp_group_quota - quotas by the panel's database: a domain's default
//
// Domains are in UTF-8. A mailbox whose mbox_quota in the panel's database is -1, or no number,
// has no quota of its own and follows its domain.
//
// Result: 1, or 0 after a report through messlog2, which does not end the process. The one
// failure without a report is a domain that has no ASCII form, with errno EINVAL. A failure ends
// the work: mailboxes that were done before keep their new quota.

#ifndef MAILVEK_MAIL_LIB_QUOTA_MAILDIRPP_GROUP_QUOTA_H
#define MAILVEK_MAIL_LIB_QUOTA_MAILDIRPP_GROUP_QUOTA_H

#include "mail/lib/quota/maildirpp_types.h"

#include <mysql.h>

// Gives a mailbox the limit mbox_quota of its domain, or no quota when there is no such limit.
[[nodiscard]] int rm_mbox_quota(char const* MailDomain, char const* MailName);

// Gives a quota to all mailboxes of a domain that have none of their own. None of a domain that
// the database does not know is no failure.
[[nodiscard]] int store_default_mbox_quota(char const* DomainName, sizequota_t quota);
[[nodiscard]] int rm_default_mbox_quota(char const* DomainName);

// The same as the two for the default.
[[nodiscard]] int store_domain_quota(char const* MailDomain, sizequota_t quota);
[[nodiscard]] int rm_domain_quota(char const* MailDomain);

// The ASCII form of a name, fit to stand between quotes in a statement on that connection. The
// caller frees it. Null, not reported, with errno EINVAL when there is no such form or ENOMEM.
[[nodiscard]] char* mysql_escape_mail_entity(MYSQL* my, char const* entity);

#endif
