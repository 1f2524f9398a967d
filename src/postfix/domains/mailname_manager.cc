#include "postfix/domains/mailname_manager.h"

#include "maildir/dot_qmail_manager.h"
#include "maildir/maildirpp_manager.h"
#include "postfix/domains/address_records.h"
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

void replaceAddress(std::string const& from, std::string const& to)
{
    DatabaseHelper::filterRecords(
        virtual_map, ElementsFilter<ReplaceElementFilterRef>(ReplaceElementFilterRef{&from, &to}));
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

// What is found under the two names, before a rename.
struct RenameView
{
    RenameView(std::string const& domain, std::string const& oldName, std::string const& newName);

    FoundNames home;
    FoundNames mailbox = {};
    FoundNames address = {};
    std::string newMailbox; // the value of the new name's mailbox record
    std::string newAddress; // and of its address
};

RenameView::RenameView(std::string const& domain, std::string const& oldName,
                       std::string const& newName)
    : home{MaildirManager::getInstance().hasMailnameHome(domain, oldName),
           MaildirManager::getInstance().hasMailnameHome(domain, newName)}
{
    // Postfix has one record for both names then, which the rename leaves as it is.
    if (oldName != newName && boost::iequals(oldName, newName))
        return;
    std::vector<std::string> const addresses = {addressOf(oldName, domain),
                                                addressOf(newName, domain)};
    FoundRecords mailboxes = findRecords(vmailbox_map, addresses);
    mailbox = {mailboxes.contains(addresses[0]), mailboxes.contains(addresses[1])};
    newMailbox = mailboxes[addresses[1]];
    FoundRecords found = findRecords(virtual_map, addresses);
    address = {found.contains(addresses[0]), found.contains(addresses[1])};
    newAddress = found[addresses[1]];
}

// What is to be done, in the order of the steps. moved stands for an interrupted rename only.
RenameState stateOfRename(std::string const& domain, std::string const& oldName,
                          std::string const& newName, MailnameManager::HasRest const& hasRest)
{
    RenameView const view(domain, oldName, newName);
    // A step that failed after its work, or an undo that failed, has left the address alone behind:
    // it leads to itself, as only the address of a mailname does.
    if (view.mailbox.oldName && !view.mailbox.newName && !view.address.oldName &&
        view.newAddress == addressOf(newName, domain) && !view.home.newName)
        return RenameState::begun;
    RenameState const state = renameState({view.mailbox, view.address, view.home});
    bool const told = view.newMailbox == relativeMaildir(domain, oldName) + '/';
    if (state == RenameState::moved && !told && !(hasRest && hasRest()))
        return RenameState::taken;
    return state;
}

} // namespace

void MailnameManager::createMailname(std::string const& domain, std::string const& mailname)
{
    makeHome(domain, mailname);
    MaildirPPManager::getInstance().removeMailboxQuota(mailname, domain);
    AtOnce batch;
    createMailnameRecord(batch, domain, mailname);
}

void MailnameManager::createMailname(std::string const& domain, std::string const& mailname,
                                     long quota)
{
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
                                     std::string const& newName, HasRest const& hasRest)
{
    RenameState const state = stateOfRename(domain, oldName, newName, hasRest);
    if (state == RenameState::taken)
        throw PostfixDatabaseError(addressOf(newName, domain) + " exists already, " +
                                   addressOf(oldName, domain) + " is not renamed");
    if (state == RenameState::moved)
        return;
    ReversibleRename rename(oldName, newName);
    rename.step("Postfix Virtual Mailboxes Database",
                [&](auto const& from, auto const& to) { renameMailbox(domain, from, to); });
    rename.step("Postfix Virtual Aliases Database", [&](auto const& from, auto const& to) {
        replaceAddress(addressOf(from, domain), addressOf(to, domain));
    });
    rename.lastStep([&](auto const& from, auto const& to) {
        MaildirManager::getInstance().renameMailnameHome(domain, from, to);
    });
}

void MailnameManager::renameMailnameOnDomainAlias(std::string const& aliasDomain,
                                                  std::string const& oldName,
                                                  std::string const& newName)
{
    replaceAddress(addressOf(oldName, aliasDomain), addressOf(newName, aliasDomain));
}

void MailnameManager::createMailAlias(std::string const& domain, std::string const& mailname,
                                      std::string const& alias)
{
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
