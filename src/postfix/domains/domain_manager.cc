#include "postfix/domains/domain_manager.h"

#include "mail/lib/aliases/append_domainaliases.h"
#include "maildir/maildirpp_manager.h"
#include "postfix/domains/address_records.h"
#include "postfix/domains/name_lists.h"
#include "postfix/domains/reversible_rename.h"
#include "postfix/maps/domain_filters.h"
#include "postfix/maps/map_names.h"
#include "postfix/maps/record_filters.h"
#include "util/errors.h"
#include "util/sh_quote.h"

#include <algorithm>
#include <array>
#include <utility>

namespace orvek::mail::postfix {

using database::ElementsFilter;
using database::KeyValueFilter;
using database::ReplaceElementFilterRef;

namespace {

constexpr std::array stdAddresses = {"postmaster", "mailer-daemon", "root",
                                     "anonymous",  "drweb",         "kluser"};

constexpr char local_domain[] = "localhost.localdomain";

// The address that stands for all addresses of the domain that are unknown.
std::string anyAddress(std::string const& domain)
{
    return '@' + domain;
}

// Quoted twice: the mail server takes one layer off as it reads the record, its shell the other.
// The double quotes keep the whole command one value.
std::string bouncePipe(std::string message)
{
    std::string command = "\"|/usr/lib64/orvek-9.0/bouncemessage";
    if (!message.empty()) {
        std::replace(message.begin(), message.end(), '\n', ' ');
        command.append(1, ' ').append(sh_quote(sh_quote(message)));
    }
    return command.append(1, '"');
}

void renameInDomain(char const* map, std::string const& from, std::string const& to)
{
    DatabaseHelper::filterRecords(
        map, ElementsFilter<ReplaceDomainPart>(ReplaceDomainPart{&from, &to, false}));
}

// Deliberate: only the key changes. The value of a record ends in "/" and so is not the name.
void renameEnabledDomain(std::string const& from, std::string const& to)
{
    DatabaseHelper::filterRecords(virtual_domains_map, ElementsFilter<ReplaceElementFilterRef>(
                                                           ReplaceElementFilterRef{&from, &to}));
}

void removeDomainFrom(char const* map, std::string const& domain, bool subdomains)
{
    DatabaseHelper::filterRecords(
        map, ElementsFilter<NotInDomainFilter>(NotInDomainFilter{domain, subdomains}));
}

// What the panel's list holds; a list that cannot be read has been reported by the query.
std::vector<std::string> required(NameList names, std::string const& domain)
{
    if (!names)
        throw PostfixDatabaseError("unable to get the names of " + domain);
    return std::move(*names);
}

// The mark of an alias domain, and under it all names of the domain.
Records aliasRecords(std::string const& domain, std::string const& alias)
{
    Records records = {{alias, "1"}};
    PanelNames panel(nullptr);
    for (auto const& mailname : required(mailnamesOf(panel, domain), domain)) {
        std::string const mailbox = addressIn(domain, mailname);
        for (auto const& name : required(mailAliasesOf(panel, mailname, domain), domain))
            records.emplace_back(addressIn(alias, name), mailbox);
        records.emplace_back(addressIn(alias, mailname), mailbox);
    }
    return records;
}

} // namespace

void DomainManager::createDomain(std::string const& domain, bool disabled)
{
    MaildirManager::getInstance().createDomainRoot(domain);
    removeDomainAlias(domain);
    AtOnce helper;
    createDomainRecord(helper, domain, disabled);
}

void DomainManager::createDomain(std::string const& domain, long quota, bool disabled)
{
    MaildirManager::getInstance().createDomainRoot(domain);
    MaildirPPManager::getInstance().setDomainQuota(domain, quota);
    removeDomainAlias(domain);
    AtOnce helper;
    createDomainRecord(helper, domain, disabled);
}

// The addresses are written twice for a domain that is enabled; that is harmless.
void DomainManager::createDomainRecord(BatchDatabaseHelper& helper, std::string const& domain,
                                       bool disabled)
{
    createStandardDomainAddresses(helper, domain);
    if (!disabled)
        enableDomain(helper, domain);
}

void DomainManager::removeDomain(std::string const& domain, OnRemoval removal)
{
    DatabaseHelper::removeRecord(virtual_domains_map, domain);
    if (removal == OnRemoval::remove)
        MaildirManager::getInstance().removeDomainRoot(domain);
    else if (removal == OnRemoval::backup)
        MaildirManager::getInstance().backupDomainRoot(domain);
    removeDomainReferences(domain, false);
}

void DomainManager::renameDomain(std::string const& oldName, std::string const& newName)
{
    struct safeMailboxRenamer
    {
        static void rename(std::string const& from, std::string const& to)
        {
            std::string const fromRoot = MaildirManager::getDomainRelativeRoot(from).string();
            std::string const toRoot = MaildirManager::getDomainRelativeRoot(to).string();
            DatabaseHelper::filterRecords(vmailbox_map,
                                          KeyValueFilter<ReplaceDomainPart, ReplaceDomainPath>{
                                              {&from, &to, false}, {&fromRoot, &toRoot}});
        }
    };

    static constexpr char title[] = "Postfix Virtual Domains Database";
    ReversibleRename rename(oldName, newName);
    rename.step(title, renameEnabledDomain);
    rename.step(title,
                [](auto const& from, auto const& to) { renameInDomain(virtual_map, from, to); });
    rename.step(title, safeMailboxRenamer::rename);
    rename.lastStep([](auto const& from, auto const& to) {
        MaildirManager::getInstance().renameDomainRoot(from, to);
    });
}

void DomainManager::enableDomain(std::string const& domain)
{
    AtOnce helper;
    enableDomain(helper, domain);
}

void DomainManager::enableDomain(BatchDatabaseHelper& helper, std::string const& domain)
{
    helper.addChange(virtual_domains_map, domain, domain + '/');
    createStandardDomainAddresses(helper, domain);
}

void DomainManager::disableDomain(std::string const& domain)
{
    DatabaseHelper::removeRecord(virtual_domains_map, domain);
    removeStandardDomainAddresses(domain);
}

void DomainManager::createCatchall(std::string const& domain, std::string const& address)
{
    AtOnce helper;
    createCatchall(helper, domain, address);
}

void DomainManager::createCatchall(BatchDatabaseHelper& helper, std::string const& domain,
                                   std::string const& address)
{
    std::vector<std::string> domains = {domain};
    append_domainaliases_by_domain(domains, domain);
    createCatchallFor(helper, domains, address);
}

void DomainManager::createCatchallFor(BatchDatabaseHelper& helper,
                                      std::vector<std::string> const& domains,
                                      std::string const& address)
{
    Records records;
    for (auto const& domain : domains)
        records.emplace_back(anyAddress(domain), address);
    helper.addChanges(virtual_map, records.begin(), records.end());
}

void DomainManager::removeCatchall(std::string const& domain)
{
    AtOnce helper;
    removeCatchall(helper, domain);
}

void DomainManager::removeCatchall(BatchDatabaseHelper& helper, std::string const& domain)
{
    std::vector<std::string> keys;
    append_domainaliases_by_domain(keys, domain);
    keys.push_back(domain);
    std::transform(keys.begin(), keys.end(), keys.begin(), anyAddress);
    helper.removeChanges(virtual_map, keys.begin(), keys.end());
}

void DomainManager::setBounce(std::string const& domain, std::string const& message)
{
    AtOnce helper;
    setBounce(helper, domain, message);
}

void DomainManager::setBounce(BatchDatabaseHelper& helper, std::string const& domain,
                              std::string const& message)
{
    std::vector<std::string> domains = {domain};
    append_domainaliases_by_domain(domains, domain);
    setBounceFor(helper, domains, message);
}

void DomainManager::setBounceFor(BatchDatabaseHelper& helper,
                                 std::vector<std::string> const& domains,
                                 std::string const& message)
{
    std::string const command = bouncePipe(message);
    Records records;
    for (auto const& domain : domains) {
        std::string const alias = "_orvek_bounce_" + domain;
        helper.addChange(aliases_map, alias, command);
        records.emplace_back(anyAddress(domain), addressIn(local_domain, alias));
    }
    helper.addChanges(virtual_map, records.begin(), records.end());
}

void DomainManager::createStandardDomainAddresses(std::string const& domain)
{
    AtOnce helper;
    createStandardDomainAddresses(helper, domain);
}

void DomainManager::createStandardDomainAddresses(BatchDatabaseHelper& helper,
                                                  std::string const& domain)
{
    Records records;
    for (auto const name : stdAddresses)
        records.emplace_back(addressIn(domain, name), addressIn(local_domain, name));
    helper.addChanges(virtual_map, records.begin(), records.end());
}

void DomainManager::removeStandardDomainAddresses(std::string const& domain)
{
    AtOnce helper;
    removeStandardDomainAddresses(helper, domain);
}

void DomainManager::removeStandardDomainAddresses(BatchDatabaseHelper& helper,
                                                  std::string const& domain)
{
    std::vector<std::string> keys;
    keys.reserve(std::size(stdAddresses));
    for (auto const name : stdAddresses)
        keys.push_back(addressIn(domain, name));
    helper.removeChanges(virtual_map, keys.begin(), keys.end());
}

void DomainManager::createDomainAlias(std::string const& domain, std::string const& alias)
{
    AtOnce helper;
    createDomainAlias(helper, domain, alias);
}

void DomainManager::createDomainAlias(BatchDatabaseHelper& helper, std::string const& domain,
                                      std::string const& alias)
{
    createStandardDomainAddresses(helper, alias);
    Records const records = aliasRecords(domain, alias);
    helper.addChanges(virtual_map, records.begin(), records.end());
}

void DomainManager::removeDomainAlias(std::string const& alias)
{
    removeDomainFrom(virtual_map, alias, false);
}

void DomainManager::renameDomainAlias(std::string const& oldName, std::string const& newName)
{
    renameInDomain(virtual_map, oldName, newName);
}

void DomainManager::removeDomainReferences(std::string const& domain, bool subdomains)
{
    removeDomainFrom(virtual_map, domain, subdomains);
    removeDomainFrom(vmailbox_map, domain, subdomains);
}

} // namespace orvek::mail::postfix
