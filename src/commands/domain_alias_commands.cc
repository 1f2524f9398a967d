#include "commands/command_values.h"
#include "commands/handlers.h"
#include "commands/nonexistent_mail.h"
#include "mail/lib/accounts/mail_auth_transaction.h"
#include "mail/lib/aliases/mail_database.h"
#include "mail/lib/handlers/handler_mass_control.h"
#include "mail/lib/server/domain_keys.h"
#include "postfix/domains/domain_manager.h"
#include "util/uerr.h"

namespace orvek::mail::postfix::mailvek_commands {

int addDomainAlias(int argc, char** argv)
{
    ProgramOptionsHelper const options = parsedOptions(argc, argv);
    std::string const domain = domainOf(options);
    std::string const alias = domainOf(options, "domain-alias-name");
    checkNotexistingMailOptions(options);

    DomainManager::createDomainAlias(domain, alias);
    if (mass_control_handler_by_mailname(domain.c_str(), alias.c_str(), HOOK_CLONE) != 0)
        uerr << "WARNING: unable to clone all mail handlers for " << alias << std::endl;
    if (clone_domain_key(domain.c_str(), alias.c_str()) != 0)
        uerr << "WARNING: cannot clone domain key for " << alias << std::endl;
    if (add_domain_auth_alias(domain.c_str(), alias.c_str()) == -1)
        return 1;
    return processNotexistingMailnamesOptions(options);
}

// Deliberate: --domain-name is mandatory but not used. The alias's own name is enough.
int removeDomainAlias(int argc, char** argv)
{
    ProgramOptionsHelper const options = parsedOptions(argc, argv);
    std::string const alias = domainOf(options, "domain-alias-name");

    DomainManager::removeDomainAlias(alias);
    if (mass_control_handler_by_mailname(alias.c_str(), nullptr, HOOK_DELETE) != 0)
        uerr << "WARNING: unable to properly remove mail handlers for " << alias << std::endl;
    remove_domain_key(alias.c_str());
    return rm_domain_auth_alias(alias.c_str()) == -1 ? 1 : 0;
}

int renameDomainAlias(int argc, char** argv)
{
    ProgramOptionsHelper const options = parsedOptions(argc, argv);
    std::string const domain = domainOf(options);
    std::string const oldName = domainOf(options, "old-domain-alias-name");
    std::string const newName = domainOf(options, "new-domain-alias-name");
    checkNotexistingMailOptions(options);

    DomainManager::renameDomainAlias(domain, oldName, newName);
    if (mass_control_handler_by_mailname(oldName.c_str(), newName.c_str(), HOOK_MOVE) != 0)
        uerr << "WARNING: unable to properly re-assign mail handlers from " << oldName << " to "
             << newName << std::endl;
    if (clone_domain_key(oldName.c_str(), newName.c_str()) != 0)
        uerr << "WARNING: cannot create domainkey for " << newName << '\n';
    remove_domain_key(oldName.c_str());
    MailAuthTransaction accounts;
    if (add_domain_auth_alias(domain.c_str(), newName.c_str()) == -1)
        return 1;
    if (rm_domain_auth_alias(oldName.c_str()) == -1)
        return 1;
    if (accounts.commit() == -1)
        return 1;
    return processNotexistingMailnamesOptions(options);
}

} // namespace orvek::mail::postfix::mailvek_commands
