// maildirpp_manager - the directories of mailboxes, and their Maildir++ quotas
//
// Quotas are in bytes: a negative one is no quota, and 0 stops delivery. Domains are in their
// ASCII form. maildirpp_quota and maildirpp_group_quota do the work and report where they fail.
// This class raises such a failure as FSError, with the errno that it left.
//
// No command calls these; they are for callers to come:
// MaildirPPManager::removeDefaultMailboxQuota, MaildirPPManager::removeDomainQuota,
// MaildirPPManager::setDefaultMailboxQuota.

#ifndef MAILVEK_MAILDIR_MAILDIRPP_MANAGER_H
#define MAILVEK_MAILDIR_MAILDIRPP_MANAGER_H

#include "mail/lib/quota/maildirpp_types.h"
#include "maildir/maildir_manager.h"

#include <string>

namespace orvek::mail {

class MaildirPPManager : public MaildirManager
{
public:
    // The only instance, made at the first call. Each call looks popuser up and raises
    // SystemError when there is no such user.
    static MaildirPPManager& getInstance();

    // Deducts the size of the directory @attachments. A quota below that size stops delivery, with
    // a warning on the standard error. The working directory is restored.
    void setMailboxQuota(std::string const& mailname, std::string const& domain,
                         sizequota_t size) const;
    // Sets the domain's limit again.
    void removeMailboxQuota(std::string const& mailname, std::string const& domain) const;

    // All mailboxes of the domain that have no quota of their own. Both pairs do the same.
    void setDomainQuota(std::string const& domain, sizequota_t size) const;
    void removeDomainQuota(std::string const& domain) const;
    void setDefaultMailboxQuota(std::string const& domain, sizequota_t size) const;
    void removeDefaultMailboxQuota(std::string const& domain) const;

private:
    MaildirPPManager() = default;
};

} // namespace orvek::mail

#endif
