// service_modules - the entries of the services that the panel switches
//
// These are records for ModuleManager::addModule. SMTP over TLS has no class: it is a SmtpdModule
// with another name and one more option, see ServiceManager::enableSmtpsd.
//
// Every element of a command but the first is a whole option: "-o", a blank and the setting.

#ifndef MAILVEK_POSTFIX_SERVER_SERVICE_MODULES_H
#define MAILVEK_POSTFIX_SERVER_SERVICE_MODULES_H

#include "postfix/master_cf/module_info.h"

namespace orvek::mail::postfix {

// Plain SMTP.
struct SmtpdModule : ModuleInfo
{
    SmtpdModule();
};

// Submission: SMTP over TLS for users who have logged in.
struct SubmissionModule : ModuleInfo
{
    SubmissionModule();
};

} // namespace orvek::mail::postfix

#endif
