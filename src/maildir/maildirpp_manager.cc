#include "maildir/maildirpp_manager.h"

namespace orvek::mail {

MaildirPPManager& MaildirPPManager::getInstance()
{
    static MaildirPPManager instance;
    return instance;
}

} // namespace orvek::mail
