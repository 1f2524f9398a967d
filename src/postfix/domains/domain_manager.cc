#include "postfix/domains/domain_manager.h"

#include "mail/lib/aliases/append_domainaliases.h"
#include "maildir/maildirpp_manager.h"
#include "postfix/domains/address_records.h"
#include "postfix/domains/name_claim.h"
#include "postfix/domains/name_lists.h"
#include "postfix/domains/rename_state.h"
#include "postfix/domains/reversible_rename.h"
#include "postfix/main_cf/own_domains.h"
#include "postfix/maps/domain_filters.h"
#include "postfix/maps/map_lookup.h"
#include "postfix/maps/map_names.h"
#include "postfix/maps/record_filters.h"
#include "util/errors.h"
#include "util/sh_quote.h"

#include <boost/algorithm/string/predicate.hpp>

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

[[noreturn]] void refuseOwn(std::string const& domain)
{
    throw PostfixDatabaseError("the domain " + domain + " is the mail server's own");
}

void requireForeign(std::string const& domain)
{
    if (isOwnDomain(domain))
        refuseOwn(domain);
}

// A host may have the name of a domain that it serves. A domain that was switched off can be
// switched on again, unless Postfix would deliver its mail locally.
void requireNotLocal(std::string const& domain)
{
    if (isLocalDomain(domain))
        refuseOwn(domain);
}

// The address that stands for all unknown addresses of the domain.
std::string anyAddress(std::string const& domain)
{
    return '@' + domain;
}

// Quotes the message twice: Postfix removes one layer when it reads the record, and the shell the
// other. The double quotes make the whole command one value.
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

// Deliberate: only the key changes. The value of a record ends in "/", so it never equals the name.
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

// Unwraps a list of the panel. Raises when it could not be read, which the query has reported.
std::vector<std::string> required(NameList names, std::string const& domain)
{
    if (!names)
        throw PostfixDatabaseError("unable to get the names of " + domain);
    return std::move(*names);
}

// The record that marks an alias domain, and all names of the domain under the alias.
Records aliasRecords(std::string const& domain, std::string const& alias)
{
    Records records = {{alias, "1"}};
    PanelNames panel(nullptr);
    auto const mailnames = required(mailnamesOf(panel, domain), domain);
    PanelNames::NamesByName aliases;
    if (!mailnames.empty() &&
        panel.get_aliases_by_domain(mailnames[0].c_str(), domain.c_str(), &aliases) == -1)
        required(std::nullopt, domain);
    for (auto const& mailname : mailnames) {
        std::string const mailbox = addressOf(mailname, domain);
        for (auto const& name : aliases[mailname])
            records.emplace_back(addressOf(name, alias), mailbox);
        records.emplace_back(addressOf(mailname, alias), mailbox);
    }
    return records;
}

// Whether newName, which is marked, is an alias domain of the domain. Where the panel does not know
// it yet, its addresses show that; those of a domain without mailnames show nothing.
bool isRenamedAlias(std::string const& domain, std::string const& oldName,
                    std::string const& newName)
{
    auto const known = aliasDomainsOrNone(domain);
    auto const isKnown = [&](auto const& alias) {
        return std::find(known.begin(), known.end(), alias) != known.end();
    };
    if (isKnown(newName))
        return true;
    PanelNames panel(nullptr);
    auto const mailnames = required(mailnamesOf(panel, domain), domain);
    if (mailnames.empty())
        return isKnown(oldName);
    std::vector<std::string> addresses;
    addresses.reserve(mailnames.size());
    for (auto const& mailname : mailnames)
        addresses.push_back(addressOf(mailname, newName));
    FoundRecords const found = findRecords(virtual_map, addresses);
    return std::any_of(mailnames.begin(), mailnames.end(), [&](auto const& mailname) {
        auto const record = found.find(addressOf(mailname, newName));
        return record != found.end() && record->second == addressOf(mailname, domain);
    });
}

// A real domain has a record of its own, or only its directory while it is turned off.
bool isDomain(std::string const& name)
{
    return !findRecords(virtual_domains_map, {name}).empty() ||
           MaildirManager::getInstance().hasDomainRoot(name);
}

RenameState stateOfAliasRename(std::string const& domain, std::string const& oldName,
                               std::string const& newName)
{
    if (isDomain(newName))
        return RenameState::taken;
    // Postfix has one record for both names then, which the rename leaves as it is.
    if (oldName != newName && boost::iequals(oldName, newName))
        return RenameState::fresh;
    if (findRecords(virtual_map, {newName}).empty())
        return RenameState::fresh;
    bool const isMoved =
        findRecords(virtual_map, {oldName}).empty() && isRenamedAlias(domain, oldName, newName);
    return isMoved ? RenameState::moved : RenameState::taken;
}

} // namespace

void DomainManager::createDomain(std::string const& domain, bool disabled)
{
    requireForeign(domain);
    NameClaim const claim(domain);
    MaildirManager::getInstance().createDomainRoot(domain);
    removeDomainAlias(domain);
    AtOnce batch;
    createDomainRecord(batch, domain, disabled);
}

void DomainManager::createDomain(std::string const& domain, long quota, bool disabled)
{
    requireForeign(domain);
    NameClaim const claim(domain);
    MaildirManager::getInstance().createDomainRoot(domain);
    MaildirPPManager::getInstance().setDomainQuota(domain, quota);
    removeDomainAlias(domain);
    AtOnce batch;
    createDomainRecord(batch, domain, disabled);
}

// An enabled domain gets its addresses twice, which is harmless.
void DomainManager::createDomainRecord(BatchDatabaseHelper& batch, std::string const& domain,
                                       bool disabled)
{
    createStandardDomainAddresses(batch, domain);
    if (!disabled)
        enableDomain(batch, domain);
}

void DomainManager::removeDomain(std::string const& domain, OnRemoval removal)
{
    DatabaseHelper::removeRecord(virtual_domains_map, domain);
    if (removal == OnRemoval::remove)
        MaildirManager::getInstance().removeDomainRoot(domain);
    else if (removal == OnRemoval::backup)
        MaildirManager::getInstance().backupDomainRoot(domain);
    removeDomainReferences(domain, /*subdomains=*/false);
}

void DomainManager::renameDomain(std::string const& oldName, std::string const& newName)
{
    requireForeign(newName);
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
    requireNotLocal(domain);
    AtOnce batch;
    enableDomain(batch, domain);
}

void DomainManager::enableDomain(BatchDatabaseHelper& batch, std::string const& domain)
{
    batch.addChange(virtual_domains_map, domain, domain + '/');
    createStandardDomainAddresses(batch, domain);
}

void DomainManager::disableDomain(std::string const& domain)
{
    DatabaseHelper::removeRecord(virtual_domains_map, domain);
    removeStandardDomainAddresses(domain);
}

void DomainManager::createCatchall(std::string const& domain, std::string const& address)
{
    AtOnce batch;
    createCatchall(batch, domain, address);
}

void DomainManager::createCatchall(BatchDatabaseHelper& batch, std::string const& domain,
                                   std::string const& address)
{
    std::vector<std::string> domains = {domain};
    append_domainaliases_by_domain(domains, domain);
    createCatchallFor(batch, domains, address);
}

void DomainManager::createCatchallFor(BatchDatabaseHelper& batch,
                                      std::vector<std::string> const& domains,
                                      std::string const& address)
{
    Records records;
    for (auto const& domain : domains)
        records.emplace_back(anyAddress(domain), address);
    batch.addChanges(virtual_map, records.begin(), records.end());
}

void DomainManager::removeCatchall(std::string const& domain)
{
    AtOnce batch;
    removeCatchall(batch, domain);
}

void DomainManager::removeCatchall(BatchDatabaseHelper& batch, std::string const& domain)
{
    std::vector<std::string> keys;
    append_domainaliases_by_domain(keys, domain);
    keys.push_back(domain);
    std::transform(keys.begin(), keys.end(), keys.begin(), anyAddress);
    batch.removeChanges(virtual_map, keys.begin(), keys.end());
}

void DomainManager::setBounce(std::string const& domain, std::string const& message)
{
    AtOnce batch;
    setBounce(batch, domain, message);
}

void DomainManager::setBounce(BatchDatabaseHelper& batch, std::string const& domain,
                              std::string const& message)
{
    std::vector<std::string> domains = {domain};
    append_domainaliases_by_domain(domains, domain);
    setBounceFor(batch, domains, message);
}

void DomainManager::setBounceFor(BatchDatabaseHelper& batch,
                                 std::vector<std::string> const& domains,
                                 std::string const& message)
{
    std::string const command = bouncePipe(message);
    Records records;
    for (auto const& domain : domains) {
        std::string const alias = "_orvek_bounce_" + domain;
        batch.addChange(aliases_map, alias, command);
        records.emplace_back(anyAddress(domain), addressOf(alias, local_domain));
    }
    batch.addChanges(virtual_map, records.begin(), records.end());
}

void DomainManager::createStandardDomainAddresses(std::string const& domain)
{
    AtOnce batch;
    createStandardDomainAddresses(batch, domain);
}

void DomainManager::createStandardDomainAddresses(BatchDatabaseHelper& batch,
                                                  std::string const& domain)
{
    Records records;
    for (auto const name : stdAddresses)
        records.emplace_back(addressOf(name, domain), addressOf(name, local_domain));
    batch.addChanges(virtual_map, records.begin(), records.end());
}

void DomainManager::removeStandardDomainAddresses(std::string const& domain)
{
    AtOnce batch;
    removeStandardDomainAddresses(batch, domain);
}

void DomainManager::removeStandardDomainAddresses(BatchDatabaseHelper& batch,
                                                  std::string const& domain)
{
    std::vector<std::string> keys;
    keys.reserve(std::size(stdAddresses));
    for (auto const name : stdAddresses)
        keys.push_back(addressOf(name, domain));
    batch.removeChanges(virtual_map, keys.begin(), keys.end());
}

void DomainManager::createDomainAlias(std::string const& domain, std::string const& alias)
{
    NameClaim const claim(alias);
    AtOnce batch;
    createDomainAlias(batch, domain, alias);
}

void DomainManager::createDomainAlias(BatchDatabaseHelper& batch, std::string const& domain,
                                      std::string const& alias)
{
    requireForeign(alias);
    createStandardDomainAddresses(batch, alias);
    Records const records = aliasRecords(domain, alias);
    batch.addChanges(virtual_map, records.begin(), records.end());
}

void DomainManager::removeDomainAlias(std::string const& alias)
{
    removeDomainFrom(virtual_map, alias, /*subdomains=*/false);
}

void DomainManager::renameDomainAlias(std::string const& oldName, std::string const& newName)
{
    requireForeign(newName);
    renameInDomain(virtual_map, oldName, newName);
}

void DomainManager::renameDomainAlias(std::string const& domain, std::string const& oldName,
                                      std::string const& newName)
{
    requireForeign(newName);
    NameClaim const claim(newName);
    RenameState const state = stateOfAliasRename(domain, oldName, newName);
    if (state == RenameState::taken)
        throw PostfixDatabaseError(newName + " exists already, " + oldName + " is not renamed");
    if (state == RenameState::fresh)
        renameInDomain(virtual_map, oldName, newName);
}

void DomainManager::removeDomainReferences(std::string const& domain, bool subdomains)
{
    removeDomainFrom(virtual_map, domain, subdomains);
    removeDomainFrom(vmailbox_map, domain, subdomains);
}

} // namespace orvek::mail::postfix
