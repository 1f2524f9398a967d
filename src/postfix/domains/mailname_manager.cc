#include "postfix/domains/mailname_manager.h"

#include "maildir/dot_qmail_manager.h"
#include "maildir/maildirpp_manager.h"
#include "postfix/domains/address_records.h"
#include "postfix/domains/name_lists.h"
#include "postfix/domains/reversible_rename.h"
#include "postfix/maps/map_names.h"
#include "postfix/maps/record_filters.h"

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

// The local part under the domain and under each of its alias domains, all leading to mailbox.
void addAddresses(BatchDatabaseHelper& helper, std::string const& domain,
                  std::string const& localPart, std::string const& mailbox)
{
    Records records = {{addressIn(domain, localPart), mailbox}};
    for (auto const& aliasDomain : aliasDomainsOrNone(domain))
        records.emplace_back(addressIn(aliasDomain, localPart), mailbox);
    helper.addChanges(virtual_map, records.begin(), records.end());
}

void replaceAddress(std::string const& from, std::string const& to)
{
    DatabaseHelper::filterRecords(
        virtual_map, ElementsFilter<ReplaceElementFilterRef>(ReplaceElementFilterRef{&from, &to}));
}

// Deliberate: these directories carry no "/" at their end and the records do, so that the value
// of a record stays as it was and only its key changes.
void renameMailbox(std::string const& domain, std::string const& from, std::string const& to)
{
    std::string const fromAddress = addressIn(domain, from);
    std::string const toAddress = addressIn(domain, to);
    std::string const fromMaildir = relativeMaildir(domain, from);
    std::string const toMaildir = relativeMaildir(domain, to);
    DatabaseHelper::filterRecords(vmailbox_map,
                                  KeyValueFilter<ReplaceElementFilterRef, ReplaceElementFilterRef>{
                                      {&fromAddress, &toAddress}, {&fromMaildir, &toMaildir}});
}

} // namespace

void MailnameManager::createMailname(std::string const& domain, std::string const& mailname)
{
    makeHome(domain, mailname);
    MaildirPPManager::getInstance().removeMailboxQuota(mailname, domain);
    AtOnce helper;
    createMailnameRecord(helper, domain, mailname);
}

void MailnameManager::createMailname(std::string const& domain, std::string const& mailname,
                                     long quota)
{
    makeHome(domain, mailname);
    MaildirPPManager::getInstance().setMailboxQuota(mailname, domain, quota);
    AtOnce helper;
    createMailnameRecord(helper, domain, mailname);
}

void MailnameManager::createMailnameRecord(BatchDatabaseHelper& helper, std::string const& domain,
                                           std::string const& mailname)
{
    std::string const mailbox = addressIn(domain, mailname);
    helper.addChange(vmailbox_map, mailbox, relativeMaildir(domain, mailname) + '/');
    addAddresses(helper, domain, mailname, mailbox);
}

void MailnameManager::removeMailname(std::string const& domain, std::string const& mailname,
                                     OnRemoval removal)
{
    DatabaseHelper::removeRecord(vmailbox_map, addressIn(domain, mailname));
    for (auto const& aliasDomain : aliasDomainsOrNone(domain))
        DatabaseHelper::removeRecord(virtual_map, addressIn(aliasDomain, mailname));
    DatabaseHelper::removeRecord(virtual_map, addressIn(domain, mailname));
    if (removal == OnRemoval::remove)
        MaildirManager::getInstance().removeMailnameHome(domain, mailname);
    else if (removal == OnRemoval::backup)
        MaildirManager::getInstance().backupMailnameHome(domain, mailname);
}

void MailnameManager::renameMailname(std::string const& domain, std::string const& oldName,
                                     std::string const& newName)
{
    ReversibleRename rename(oldName, newName);
    rename.step("Postfix Virtual Mailboxes Database",
                [&](auto const& from, auto const& to) { renameMailbox(domain, from, to); });
    rename.step("Postfix Virtual Aliases Database", [&](auto const& from, auto const& to) {
        replaceAddress(addressIn(domain, from), addressIn(domain, to));
    });
    rename.lastStep([&](auto const& from, auto const& to) {
        MaildirManager::getInstance().renameMailnameHome(domain, from, to);
    });
}

void MailnameManager::renameMailnameOnDomainAlias(std::string const& aliasDomain,
                                                  std::string const& oldName,
                                                  std::string const& newName)
{
    replaceAddress(addressIn(aliasDomain, oldName), addressIn(aliasDomain, newName));
}

void MailnameManager::createMailAlias(std::string const& domain, std::string const& mailname,
                                      std::string const& alias)
{
    AtOnce helper;
    createMailAlias(helper, domain, mailname, alias);
}

void MailnameManager::createMailAlias(BatchDatabaseHelper& helper, std::string const& domain,
                                      std::string const& mailname, std::string const& alias)
{
    addAddresses(helper, domain, alias, addressIn(domain, mailname));
}

void MailnameManager::removeMailAlias(std::string const& domain, std::string const& /*mailname*/,
                                      std::string const& alias)
{
    DatabaseHelper::removeRecord(virtual_map, addressIn(domain, alias));
    for (auto const& aliasDomain : aliasDomainsOrNone(domain))
        DatabaseHelper::removeRecord(virtual_map, addressIn(aliasDomain, alias));
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
