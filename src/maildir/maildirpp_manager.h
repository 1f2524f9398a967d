// maildirpp_manager - the directories of mailboxes, and their Maildir++ quotas
//
// Quotas are in bytes; a negative one is no quota, and one of 0 stops delivery. What the plain
// functions do, and report where they fail, is said at maildirpp_quota and
// maildirpp_group_quota; such a failure is raised here as FSError, with the errno that it left.
// Domains are in their ASCII form.

#ifndef MAILVEK_MAILDIR_MAILDIRPP_MANAGER_H
#define MAILVEK_MAILDIR_MAILDIRPP_MANAGER_H

#include "mail/lib/quota/maildirpp_types.h"
#include "maildir/maildir_manager.h"

#include <string>

namespace orvek::mail {

class MaildirPPManager : public MaildirManager
{
public:
    // The one instance, made at the first call. Each call looks popuser up, and raises
    // SystemError when there is no such user.
    static MaildirPPManager& getInstance();

    // What the directory @attachments takes is deducted. A quota below that stops delivery, and a
    // warning on the standard error says so. The working directory is the same again at the end.
    void setMailboxQuota(std::string const& mailname, std::string const& domain,
                         sizequota_t size) const;
    // Back to the domain's limit.
    void removeMailboxQuota(std::string const& mailname, std::string const& domain) const;

    // For all mailboxes of the domain that have no quota of their own. The two pairs do the same.
    void setDomainQuota(std::string const& domain, sizequota_t size) const;
    void removeDomainQuota(std::string const& domain) const;
    void setDefaultMailboxQuota(std::string const& domain, sizequota_t size) const;
    void removeDefaultMailboxQuota(std::string const& domain) const;

private:
    MaildirPPManager() = default;
};

} // namespace orvek::mail

#endif
