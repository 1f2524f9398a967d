#include "postfix/domains/mailname_manager.h"

#include "maildir/dot_qmail_manager.h"
#include "maildir/maildirpp_manager.h"
#include "postfix/domains/address_records.h"
#include "postfix/domains/name_claim.h"
#include "postfix/domains/name_lists.h"
#include "postfix/domains/rename_state.h"
#include "postfix/domains/reversible_rename.h"
#include "postfix/maps/map_lookup.h"
#include "postfix/maps/map_names.h"
#include "postfix/maps/record_filters.h"
#include "util/errors.h"

#include <boost/algorithm/string/predicate.hpp>

#include <vector>

namespace orvek::mail::postfix {

using database::ElementsFilter;
using database::KeyValueFilter;
using database::ReplaceElementFilterRef;
using database::ReplaceElementsFilterRef;
using database::Replacements;

namespace {

DotQMailManager deliveryFileOf(std::string const& domain, std::string const& mailname)
{
    auto const home = MaildirManager::getInstance().getMailnameHome(domain, mailname);
    return DotQMailManager((home / ".qmail").string());
}

std::string relativeMaildir(std::string const& domain, std::string const& mailname)
{
    return (MaildirManager::getMailnameRelativeHome(domain, mailname) / "Maildir").string();
}

void makeHome(std::string const& domain, std::string const& mailname)
{
    MaildirManager::getInstance().createMailnameHome(domain, mailname);
    deliveryFileOf(domain, mailname).reset();
}

// Adds the local part under the domain and under each of its alias domains, all for mailbox.
void addAddresses(BatchDatabaseHelper& batch, std::string const& domain,
                  std::string const& localPart, std::string const& mailbox)
{
    Records records = {{addressOf(localPart, domain), mailbox}};
    for (auto const& aliasDomain : aliasDomainsOrNone(domain))
        records.emplace_back(addressOf(localPart, aliasDomain), mailbox);
    batch.addChanges(virtual_map, records.begin(), records.end());
}

std::vector<std::string> addressesOf(std::string const& localPart,
                                     std::vector<std::string> const& domains)
{
    std::vector<std::string> addresses;
    addresses.reserve(domains.size());
    for (auto const& domain : domains)
        addresses.push_back(addressOf(localPart, domain));
    return addresses;
}

// One pass over the map, for whatever number of domains.
void replaceAddresses(std::vector<std::string> const& domains, std::string const& from,
                      std::string const& to)
{
    Replacements pairs;
    for (auto const& domain : domains)
        pairs.emplace(addressOf(from, domain), addressOf(to, domain));
    DatabaseHelper::filterRecords(
        virtual_map, ElementsFilter<ReplaceElementsFilterRef>(ReplaceElementsFilterRef{&pairs}));
}

// Deliberate: changes only the keys. The values of the records end in "/" and these directories do
// not, so no value matches.
void renameMailbox(std::string const& domain, std::string const& from, std::string const& to)
{
    std::string const fromAddress = addressOf(from, domain);
    std::string const toAddress = addressOf(to, domain);
    std::string const fromMaildir = relativeMaildir(domain, from);
    std::string const toMaildir = relativeMaildir(domain, to);
    DatabaseHelper::filterRecords(vmailbox_map,
                                  KeyValueFilter<ReplaceElementFilterRef, ReplaceElementFilterRef>{
                                      {&fromAddress, &toAddress}, {&fromMaildir, &toMaildir}});
}

// What is found under the two names, before a rename. What has the old name is looked at only where
// anything has the new one: a rename that nothing stands in the way of needs one look at each map.
struct RenameView
{
    RenameView(std::string const& domain, std::string const& oldName, std::string const& newName,
               std::vector<std::string> const& aliasDomains);

    FoundNames home;
    FoundNames mailbox = {};
    FoundNames address = {};
    std::string newMailbox; // the value of the new name's mailbox record
    std::string newAddress; // and of its address
    std::string taken;      // the new name under an alias domain, where it is somebody else's
};

RenameView::RenameView(std::string const& domain, std::string const& oldName,
                       std::string const& newName, std::vector<std::string> const& aliasDomains)
    : home{MaildirManager::getInstance().hasMailnameHome(domain, oldName),
           MaildirManager::getInstance().hasMailnameHome(domain, newName)}
{
    // Postfix has one record for both names then, which the rename leaves as it is.
    if (oldName != newName && boost::iequals(oldName, newName))
        return;
    std::string const from = addressOf(oldName, domain);
    std::string const to = addressOf(newName, domain);
    std::vector<std::string> const aliases = addressesOf(newName, aliasDomains);
    std::vector<std::string> wanted = aliases;
    wanted.push_back(to);
    FoundRecords mailboxes = findRecords(vmailbox_map, {to});
    FoundRecords addresses = findRecords(virtual_map, wanted);
    for (auto const& alias : aliases)
        if (addresses.contains(alias) && addresses[alias] != from && addresses[alias] != to)
            taken = alias;
    mailbox.newName = mailboxes.contains(to);
    address.newName = addresses.contains(to);
    newMailbox = mailboxes[to];
    newAddress = addresses[to];
    if (!home.newName && !mailbox.newName && !address.newName)
        return;
    mailbox.oldName = findRecords(vmailbox_map, {from}).contains(from);
    address.oldName = findRecords(virtual_map, {from}).contains(from);
}

// What is to be done, in the order of the steps. moved stands for an interrupted rename only.
// Raises when the new name is somebody else's.
RenameState stateOfRename(std::string const& domain, std::string const& oldName,
                          std::string const& newName, std::vector<std::string> const& aliasDomains,
                          bool isBegun)
{
    auto const refuse = [&](std::string const& taken) {
        throw PostfixDatabaseError(taken + " exists already, " + addressOf(oldName, domain) +
                                   " is not renamed");
    };
    RenameView const view(domain, oldName, newName, aliasDomains);
    if (!view.taken.empty())
        refuse(view.taken);
    // A step that failed after its work, or an undo that failed, has left the address alone behind:
    // it leads to itself, as only the address of a mailname does.
    if (view.mailbox.oldName && !view.mailbox.newName && !view.address.oldName &&
        view.newAddress == addressOf(newName, domain) && !view.home.newName)
        return RenameState::begun;
    RenameState const state = renameState({view.mailbox, view.address, view.home});
    bool const isTold = isBegun || view.newMailbox == relativeMaildir(domain, oldName) + '/';
    if (state == RenameState::taken || (state == RenameState::moved && !isTold))
        refuse(addressOf(newName, domain));
    return state;
}

// Moves the records and the home, or takes all back when a step fails.
void moveMailname(std::string const& domain, std::string const& oldName, std::string const& newName,
                  std::vector<std::string> domains)
{
    domains.push_back(domain);
    ReversibleRename rename(oldName, newName);
    rename.step("Postfix Virtual Mailboxes Database",
                [&](auto const& from, auto const& to) { renameMailbox(domain, from, to); });
    rename.step("Postfix Virtual Aliases Database",
                [&](auto const& from, auto const& to) { replaceAddresses(domains, from, to); });
    rename.lastStep([&](auto const& from, auto const& to) {
        MaildirManager::getInstance().renameMailnameHome(domain, from, to);
    });
}

} // namespace

void MailnameManager::createMailname(std::string const& domain, std::string const& mailname)
{
    NameClaim const claim(addressOf(mailname, domain));
    claim.end();
    makeHome(domain, mailname);
    MaildirPPManager::getInstance().removeMailboxQuota(mailname, domain);
    AtOnce batch;
    createMailnameRecord(batch, domain, mailname);
}

void MailnameManager::createMailname(std::string const& domain, std::string const& mailname,
                                     long quota)
{
    NameClaim const claim(addressOf(mailname, domain));
    claim.end();
    makeHome(domain, mailname);
    MaildirPPManager::getInstance().setMailboxQuota(mailname, domain, quota);
    AtOnce batch;
    createMailnameRecord(batch, domain, mailname);
}

void MailnameManager::createMailnameRecord(BatchDatabaseHelper& batch, std::string const& domain,
                                           std::string const& mailname)
{
    std::string const mailbox = addressOf(mailname, domain);
    batch.addChange(vmailbox_map, mailbox, relativeMaildir(domain, mailname) + '/');
    addAddresses(batch, domain, mailname, mailbox);
}

void MailnameManager::removeMailname(std::string const& domain, std::string const& mailname,
                                     OnRemoval removal)
{
    DatabaseHelper::removeRecord(vmailbox_map, addressOf(mailname, domain));
    for (auto const& aliasDomain : aliasDomainsOrNone(domain))
        DatabaseHelper::removeRecord(virtual_map, addressOf(mailname, aliasDomain));
    DatabaseHelper::removeRecord(virtual_map, addressOf(mailname, domain));
    if (removal == OnRemoval::remove)
        MaildirManager::getInstance().removeMailnameHome(domain, mailname);
    else if (removal == OnRemoval::backup)
        MaildirManager::getInstance().backupMailnameHome(domain, mailname);
}

void MailnameManager::renameMailname(std::string const& domain, std::string const& oldName,
                                     std::string const& newName,
                                     std::vector<std::string> const& aliasDomains, Rest const& rest)
{
    NameClaim const claim(addressOf(newName, domain));
    RenameState const state =
        stateOfRename(domain, oldName, newName, aliasDomains, claim.isBegun(oldName));
    claim.begin(oldName);
    if (state == RenameState::moved) {
        renameMailnameOnDomainAliases(aliasDomains, oldName, newName);
    } else {
        try {
            moveMailname(domain, oldName, newName, aliasDomains);
        } catch (...) {
            claim.end();
            throw;
        }
    }
    if (!rest || rest())
        claim.end();
}

void MailnameManager::renameMailnameOnDomainAlias(std::string const& aliasDomain,
                                                  std::string const& oldName,
                                                  std::string const& newName)
{
    renameMailnameOnDomainAliases({aliasDomain}, oldName, newName);
}

void MailnameManager::renameMailnameOnDomainAliases(std::vector<std::string> const& aliasDomains,
                                                    std::string const& oldName,
                                                    std::string const& newName)
{
    if (!aliasDomains.empty())
        replaceAddresses(aliasDomains, oldName, newName);
}

void MailnameManager::createMailAlias(std::string const& domain, std::string const& mailname,
                                      std::string const& alias)
{
    NameClaim const claim(addressOf(alias, domain));
    claim.end();
    AtOnce batch;
    createMailAlias(batch, domain, mailname, alias);
}

void MailnameManager::createMailAlias(BatchDatabaseHelper& batch, std::string const& domain,
                                      std::string const& mailname, std::string const& alias)
{
    addAddresses(batch, domain, alias, addressOf(mailname, domain));
}

void MailnameManager::removeMailAlias(std::string const& domain, std::string const& /*mailname*/,
                                      std::string const& alias)
{
    DatabaseHelper::removeRecord(virtual_map, addressOf(alias, domain));
    for (auto const& aliasDomain : aliasDomainsOrNone(domain))
        DatabaseHelper::removeRecord(virtual_map, addressOf(alias, aliasDomain));
}

void MailnameManager::addForward(std::string const& domain, std::string const& mailname,
                                 std::string const& address)
{
    deliveryFileOf(domain, mailname).addRedirect(address, DotQMailManager::atEnd);
}

void MailnameManager::removeForward(std::string const& domain, std::string const& mailname,
                                    std::string const& address)
{
    deliveryFileOf(domain, mailname).removeRedirect(address);
}

void MailnameManager::enableDelivery(std::string const& domain, std::string const& mailname)
{
    deliveryFileOf(domain, mailname).enableDelivery();
}

void MailnameManager::disableDelivery(std::string const& domain, std::string const& mailname)
{
    deliveryFileOf(domain, mailname).disableDelivery();
}

} // namespace orvek::mail::postfix
