#include "commands/command_values.h"
#include "commands/handlers.h"
#include "mail/lib/accounts/mail_authenticate.h"
#include "mail/lib/aliases/mail_database.h"
#include "mail/lib/handlers/handler_mass_control.h"
#include "maildir/maildirpp_manager.h"
#include "postfix/domains/domain_manager.h"
#include "util/uerr.h"

namespace orvek::mail::postfix::mailvek_commands {

int addDomain(int argc, char** argv)
{
    ProgramOptionsHelper const options = parsedOptions(argc, argv);
    std::string const domain = domainOf(options);

    if (isGiven(options, "disk-quota"))
        DomainManager::createDomain(domain, quotaOf(options), /*disabled=*/false);
    else
        DomainManager::createDomain(domain, /*disabled=*/false);
    return 0;
}

int removeDomain(int argc, char** argv)
{
    std::string const domain = parseDomain(argc, argv);

    if (domain_auth_action(domain.c_str(), mailAuthRemoveDomain, "remove auth record") == -1)
        return 1;
    DomainManager::removeDomain(domain, OnRemoval::remove);
    if (mass_control_handler_by_mailname(domain.c_str(), nullptr, HOOK_DELETE) != 0)
        uerr << "WARNING: unable to properly remove all mail handlers for " << domain << std::endl;
    return 0;
}

int enableDomain(int argc, char** argv)
{
    std::string const domain = parseDomain(argc, argv);

    if (domain_auth_action(domain.c_str(), mailAuthEnableDomain, "enable auth records") == -1)
        return 1;
    DomainManager::enableDomain(domain);
    mass_control_handler_by_mailname(domain.c_str(), nullptr, HOOK_ENABLE);
    return 0;
}

int disableDomain(int argc, char** argv)
{
    std::string const domain = parseDomain(argc, argv);

    if (domain_auth_action(domain.c_str(), mailAuthDisableDomain, "disable auth records") == -1)
        return 1;
    DomainManager::disableDomain(domain);
    mass_control_handler_by_mailname(domain.c_str(), nullptr, HOOK_DISABLE);
    return 0;
}

int setDomainDiskQuota(int argc, char** argv)
{
    ProgramOptionsHelper const options = parsedOptions(argc, argv);

    MaildirPPManager& manager = MaildirPPManager::getInstance();
    std::string const domain = domainOf(options);
    manager.setDomainQuota(domain, quotaOf(options));
    return 0;
}

} // namespace orvek::mail::postfix::mailvek_commands
