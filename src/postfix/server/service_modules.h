// service_modules - the entries of the services that the panel switches
//
// Records as ModuleManager::addModule takes them. SMTP over TLS has no class of its own: it is a
// SmtpdModule under another name with one option more, see ServiceManager::enableSmtpsd.
//
// Every element of a command but the first is a whole option line: "-o", a blank and the setting.

#ifndef MAILVEK_POSTFIX_SERVER_SERVICE_MODULES_H
#define MAILVEK_POSTFIX_SERVER_SERVICE_MODULES_H

#include "postfix/master_cf/module_info.h"

namespace orvek::mail::postfix {

// Plain SMTP.
struct SmtpdModule : ModuleInfo
{
    SmtpdModule();
};

// Submission: SMTP over TLS for those who have logged in.
struct SubmissionModule : ModuleInfo
{
    SubmissionModule();
};

} // namespace orvek::mail::postfix

#endif
