#include "commands/command_values.h"
#include "commands/handlers.h"
#include "mail/lib/accounts/mail_authenticate.h"
#include "mail/lib/aliases/mail_database.h"
#include "mail/lib/handlers/handler_mass_control.h"
#include "maildir/maildirpp_manager.h"
#include "postfix/domains/domain_manager.h"
#include "util/uerr.h"

namespace orvek::mail::postfix::mailvek_commands {

namespace po = boost::program_options;

int addDomain(int argc, char** argv)
{
    ProgramOptionsHelper helper = commandOptions("--add-domain");
    declareDomain(helper);
    helper.addOptions()("disk-quota", po::value<long>(), "disk quota", false);
    standardOptionsParse(helper, argc, argv);
    std::string const domain = domainOf(helper);

    if (isGiven(helper, "disk-quota"))
        DomainManager::createDomain(domain, quotaOf(helper), false);
    else
        DomainManager::createDomain(domain, false);
    return 0;
}

int removeDomain(int argc, char** argv)
{
    std::string const domain = parseDomain("--remove-domain", argc, argv);

    if (domain_auth_action(domain.c_str(), mailAuthRemoveDomain, "remove auth record") == -1)
        return 1;
    DomainManager::removeDomain(domain, OnRemoval::remove);
    if (mass_control_handler_by_mailname(domain.c_str(), nullptr, HOOK_DELETE) != 0)
        uerr << "WARNING: unable to properly remove all mail handlers for " << domain << std::endl;
    return 0;
}

int enableDomain(int argc, char** argv)
{
    std::string const domain = parseDomain("--turn-on-domain", argc, argv);

    if (domain_auth_action(domain.c_str(), mailAuthEnableDomain, "enable auth records") == -1)
        return 1;
    DomainManager::enableDomain(domain);
    mass_control_handler_by_mailname(domain.c_str(), nullptr, HOOK_ENABLE);
    return 0;
}

int disableDomain(int argc, char** argv)
{
    std::string const domain = parseDomain("--turn-off-domain", argc, argv);

    if (domain_auth_action(domain.c_str(), mailAuthDisableDomain, "disable auth records") == -1)
        return 1;
    DomainManager::disableDomain(domain);
    mass_control_handler_by_mailname(domain.c_str(), nullptr, HOOK_DISABLE);
    return 0;
}

int setDomainDiskQuota(int argc, char** argv)
{
    ProgramOptionsHelper helper = commandOptions("--set-domain-disk-quota");
    declareDomain(helper);
    helper.addOptions()("disk-quota", po::value<long>(), "disk quota", true);
    standardOptionsParse(helper, argc, argv);

    MaildirPPManager& manager = MaildirPPManager::getInstance();
    std::string const domain = domainOf(helper);
    manager.setDomainQuota(domain, quotaOf(helper));
    return 0;
}

} // namespace orvek::mail::postfix::mailvek_commands
