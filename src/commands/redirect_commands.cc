#include "commands/command_values.h"
#include "commands/handlers.h"
#include "mail/lib/accounts/mail_authenticate.h"
#include "mail/lib/aliases/mail_database.h"
#include "mail/lib/handlers/autoresponder.h"
#include "mail/lib/handlers/handler_mass_control.h"
#include "postfix/domains/address_records.h"
#include "postfix/domains/mailname_manager.h"
#include "postfix/domains/name_lists.h"
#include "util/uerr.h"

namespace orvek::mail::postfix::mailvek_commands {

namespace {

using ForwardChange = void (*)(std::string const& domain, std::string const& mailname,
                               std::string const& address);

int changeRedirect(ForwardChange change, int argc, char** argv)
{
    ProgramOptionsHelper const options = parsedOptions(argc, argv);
    std::string const domain = domainOf(options);
    std::string const address = emailOf(options, "redirect-email");

    change(domain, knownLocalPartOf(options), address);
    return 0;
}

int controlAutoresponder(handler_control_t action, int argc, char** argv)
{
    ProgramOptionsHelper const options = parsedOptions(argc, argv);
    constexpr char separators[] = ", ";
    std::string const mailname = localPartListOf(options, separators);
    std::string const domain = domainListOf(options, separators);

    return autoresponder_action(mailname.c_str(), domain.c_str(), action);
}

struct MailAlias
{
    std::string domain;
    std::string mailname;
    std::string alias;
};

MailAlias parseMailAlias(int argc, char** argv)
{
    ProgramOptionsHelper const options = parsedOptions(argc, argv);
    return {domainOf(options), knownLocalPartOf(options), knownLocalPartOf(options, "alias")};
}

// Copies the mailname's account to the alias, and the alias's account to each alias domain. 0 or
// -1.
int cloneAccounts(MailAlias const& names, std::vector<std::string> const& aliasDomains)
{
    return in_one_transaction([&] {
        if (mailAuthClone(names.mailname.c_str(), names.domain.c_str(), names.alias.c_str(),
                          names.domain.c_str()) == -1)
            return -1;
        for (auto const& aliasDomain : aliasDomains)
            if (mailAuthClone(names.alias.c_str(), names.domain.c_str(), names.alias.c_str(),
                              aliasDomain.c_str()) == -1)
                return -1;
        return 0;
    });
}

} // namespace

int addRedirect(int argc, char** argv)
{
    return changeRedirect(MailnameManager::addForward, argc, argv);
}

int removeRedirect(int argc, char** argv)
{
    return changeRedirect(MailnameManager::removeForward, argc, argv);
}

int addAutoresponder(int argc, char** argv)
{
    return controlAutoresponder(HOOK_ENABLE, argc, argv);
}

int removeAutoresponder(int argc, char** argv)
{
    return controlAutoresponder(HOOK_DISABLE, argc, argv);
}

int addAlias(int argc, char** argv)
{
    MailAlias const names = parseMailAlias(argc, argv);

    MailnameManager::createMailAlias(names.domain, names.mailname, names.alias);
    std::string const mailname = addressOf(names.mailname, names.domain);
    std::string const alias = addressOf(names.alias, names.domain);
    if (mass_control_handler_by_mailname(mailname.c_str(), alias.c_str(), HOOK_CLONE) != 0)
        uerr << "WARNING: unable to set all mail handlers for " << alias << std::endl;
    auto const aliasDomains = aliasDomainsOrFailure(names.domain);
    return aliasDomains && cloneAccounts(names, *aliasDomains) == 0 ? 0 : 1;
}

int removeAlias(int argc, char** argv)
{
    MailAlias const names = parseMailAlias(argc, argv);

    MailnameManager::removeMailAlias(names.domain, names.mailname, names.alias);
    std::string const alias = addressOf(names.alias, names.domain);
    if (mass_control_handler_by_mailname(alias.c_str(), nullptr, HOOK_DELETE) != 0)
        uerr << "WARNING: unable to properly remove all mail handlers for " << alias << std::endl;
    return rm_mname_from_domains(names.alias.c_str(), names.domain.c_str()) == -1 ? 1 : 0;
}

} // namespace orvek::mail::postfix::mailvek_commands
