// maildirpp_manager - the directories of mailboxes, and their Maildir++ quotas
//
// Failures are raised.

#ifndef MAILVEK_MAILDIR_MAILDIRPP_MANAGER_H
#define MAILVEK_MAILDIR_MAILDIRPP_MANAGER_H

#include "maildir/maildir_manager.h"

namespace orvek::mail {

class MaildirPPManager : public MaildirManager
{
public:
    // The one instance, made at the first call. Raises SystemError when there is no user
    // popuser; the next call looks again.
    static MaildirPPManager& getInstance();

private:
    MaildirPPManager() = default;
};

} // namespace orvek::mail

#endif
