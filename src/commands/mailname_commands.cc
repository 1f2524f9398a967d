#include "commands/command_values.h"
#include "commands/handlers.h"
#include "lib/host/enviroment.h"
#include "mail/lib/accounts/mail_authenticate.h"
#include "mail/lib/aliases/mail_database.h"
#include "mail/lib/handlers/handler_mass_control.h"
#include "postfix/domains/address_records.h"
#include "postfix/domains/mailname_manager.h"
#include "postfix/domains/name_lists.h"
#include "util/errors.h"
#include "util/uerr.h"

#include <exception>
#include <string>
#include <vector>

namespace orvek::mail::postfix::mailvek_commands {

namespace {

// Returns the status of a command that needs the list.
int reportUnreadAliasDomains(std::string const& domain)
{
    uerr << "ERROR: unable get domain aliases for domain " << domain << std::endl;
    return 1;
}

bool removeHooks(std::string const& address)
{
    return mass_control_handler_by_mailname(address.c_str(), nullptr, HOOK_DELETE) == 0;
}

void removeHooksOfAlias(std::string const& address)
{
    if (!removeHooks(address))
        uerr << "ERROR: unable to remove mail handler for " << address << std::endl;
}

// Removes, in this order: the mailname under each alias domain, its mail aliases under the domain,
// its mail aliases under each alias domain. The caller handles the mailname under the domain.
void removeHooksOfAliases(std::string const& mailname, std::string const& domain,
                          std::vector<std::string> const& domainAliases,
                          std::vector<std::string> const& mailAliases)
{
    for (auto const& domainAlias : domainAliases)
        removeHooksOfAlias(addressOf(mailname, domainAlias));
    for (auto const& mailAlias : mailAliases)
        removeHooksOfAlias(addressOf(mailAlias, domain));
    for (auto const& mailAlias : mailAliases)
        for (auto const& domainAlias : domainAliases)
            removeHooksOfAlias(addressOf(mailAlias, domainAlias));
}

// Gives the addresses under these alias domains the old name again.
void takeBack(std::vector<std::string> const& aliasDomains, std::string const& oldName,
              std::string const& newName)
{
    try {
        MailnameManager::renameMailnameOnDomainAliases(aliasDomains, newName, oldName);
    } catch (std::exception const&) {
        uerr << doubleErrorHead << "Postfix Virtual Aliases Database" << doubleErrorTail
             << std::endl;
    }
}

// Returns the status of the command, 0 to go on. Renames the account under the domain itself first;
// its failure stops nothing and becomes the result at the end. The first failure under an alias
// domain ends it, and the addresses keep the old name there and under the following ones.
int renameAccounts(std::string const& domain, std::string const& oldName,
                   std::string const& newName, NameList const& aliasDomains)
{
    auto const renameAt = [&](std::string const& at) {
        return mailAuthRename(oldName.c_str(), newName.c_str(), at.c_str());
    };
    auto const aliases = aliasDomains.value_or(std::vector<std::string>());
    auto failed = aliases.begin();
    MailAuthTransaction accounts;
    int status = renameAt(domain);
    while (failed != aliases.end() && renameAt(*failed) != -1)
        ++failed;
    if (accounts.commit() == -1) {
        status = -1;
        failed = aliases.begin();
    }
    if (!aliasDomains)
        return reportUnreadAliasDomains(domain);
    if (failed == aliases.end())
        return status;
    takeBack({failed, aliases.end()}, oldName, newName);
    return 1;
}

bool hasPassword()
{
    char const* password = nullptr;
    int isEncrypted = 0;
    get_env_password(&password, &isEncrypted);
    return password && *password;
}

// What of a rename follows the records and the home. Returns the status of the command.
int renameRest(std::string const& domain, std::string const& oldName, std::string const& newName,
               NameList const& aliasDomains, bool withAccounts)
{
    if (!withAccounts) {
        if (rm_mname_from_domains(oldName.c_str(), domain.c_str()) == -1)
            return 1;
    } else if (int const status = renameAccounts(domain, oldName, newName, aliasDomains);
               status != 0) {
        return status;
    }
    std::string const oldAddress = addressOf(oldName, domain);
    std::string const newAddress = addressOf(newName, domain);
    if (mass_control_handler_by_mailname(oldAddress.c_str(), newAddress.c_str(), HOOK_MOVE) != 0)
        uerr << "WARNING: unable to re-assign some of mail handlers from " << oldAddress << " to "
             << newAddress << std::endl;
    return 0;
}

} // namespace

int addMailname(int argc, char** argv)
{
    ProgramOptionsHelper const options = parsedOptions(argc, argv);
    std::string const domain = domainOf(options);
    std::string const mailname = localPartOf(options);

    if (isGiven(options, "disk-quota"))
        MailnameManager::createMailname(domain, mailname, quotaOf(options));
    else
        MailnameManager::createMailname(domain, mailname);
    return 0;
}

int removeMailname(int argc, char** argv)
{
    ProgramOptionsHelper const options = parsedOptions(argc, argv);
    std::string const domain = domainOf(options);
    std::string const mailname = localPartOf(options);

    if (rm_mails_from_domains(mailname.c_str(), domain.c_str()) == -1)
        return 1;
    MailnameManager::removeMailname(domain, mailname, OnRemoval::remove);
    std::string const address = addressOf(mailname, domain);
    if (!removeHooks(address))
        uerr << "WARNING: unable to remove some of mail handlers for " << address << std::endl;

    auto const domainAliases = aliasDomainsOrFailure(domain);
    if (!domainAliases)
        return reportUnreadAliasDomains(domain);
    PanelNames panel(nullptr);
    auto const mailAliases = mailAliasesOf(panel, mailname, domain);
    if (!mailAliases) {
        uerr << "ERROR: unable get mail aliases for mailname " << mailname << "@" << domain
             << std::endl;
        return 1;
    }
    removeHooksOfAliases(mailname, domain, *domainAliases, *mailAliases);
    return 0;
}

int renameMailname(int argc, char** argv)
{
    ProgramOptionsHelper const options = parsedOptions(argc, argv);
    std::string const domain = domainOf(options);
    std::string const oldName = localPartOf(options, "old-mailname");
    std::string const newName = localPartOf(options, "new-mailname");

    bool const withAccounts = hasPassword();
    // Deliberate: without a password the addresses under the alias domains keep the old name.
    // The domain itself is renamed even where its alias domains cannot be read.
    NameList const aliases = withAccounts ? aliasDomainsOrFailure(domain) : NameList();
    int status = 0;
    MailnameManager::renameMailname(
        domain, oldName, newName, aliases.value_or(std::vector<std::string>()), [&] {
            status = renameRest(domain, oldName, newName, aliases, withAccounts);
            return status == 0;
        });
    return status;
}

} // namespace orvek::mail::postfix::mailvek_commands
