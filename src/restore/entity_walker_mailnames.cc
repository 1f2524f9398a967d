#include "restore/entity_walker.h"

#include "restore/row_cycle.h"
#include "restore/stored_number.h"
#include "restore/walk_step.h"

#include <optional>
#include <utility>

namespace orvek::mail::restore {

using namespace orvek::mysql;

namespace {

constexpr BadNumberWarning bad_default_quota{"Warning: invalid default mailbox quota value '",
                                             "' stored in Orvek DB, ignored"};
constexpr BadNumberWarning bad_quota{"Warning: invalid mailbox quota value '",
                                     "' stored in Orvek DB, ignored"};

// The panel's value for a mailbox without a quota of its own.
constexpr long unset_quota = -1;

// The steps of one mailname share this.
struct Mailname
{
    std::string const& domain;
    std::string const& name;
    Result::row_t const& row;
    MailsrvEntitiesCallbacks& callbacks;
    Connection& conn;

    bool has(char const* column) const
    {
        std::string const& value = row[column];
        return value == "true";
    }
};

long defaultQuota(std::string const& domainId, std::string const& domainName, Connection& conn)
{
    std::optional<std::string> const value =
        firstValue(conn, "Default Mailbox Quota for " + domainName,
                   "SELECT l.value AS value  FROM domains d, Limits l  WHERE d.id=" + domainId +
                       "    AND d.limits_id=l.id    AND l.limit_name='mbox_quota'",
                   "value");
    if (!value)
        return unset_quota;
    return storedNumber<long>(*value, bad_default_quota).value_or(unset_quota);
}

void addMailname(Mailname const& mailname)
{
    if (mailname.callbacks.addMailname)
        walkStep("   registering mailname ", mailname.name,
                 [&] { mailname.callbacks.addMailname(mailname.domain, mailname.name); });
}

void setMailbox(Mailname const& mailname)
{
    if (!mailname.callbacks.setMailbox)
        return;
    bool const enabled = mailname.has("postbox");
    walkStep("   registering mailbox for ", mailname.name,
             [&] { mailname.callbacks.setMailbox(mailname.domain, mailname.name, enabled); });
}

void setMailboxQuota(Mailname const& mailname, long default_quota)
{
    if (!mailname.callbacks.setMailboxQuota || !mailname.has("postbox"))
        return;
    long quota = storedNumber<long>(mailname.row["mbox_quota"], bad_quota).value_or(unset_quota);
    if (quota == unset_quota)
        quota = default_quota;
    walkStep("   restoring mailbox quota settings for ", mailname.name,
             [&] { mailname.callbacks.setMailboxQuota(mailname.domain, mailname.name, quota); });
}

void addMailForward(Mailname const& mailname)
{
    if (!mailname.callbacks.addMailForward || !mailname.has("redirect"))
        return;
    std::string const& address = mailname.row["redir_addr"];
    walkStep("   restoring mail forwarding for ", mailname.name,
             [&] { mailname.callbacks.addMailForward(mailname.domain, mailname.name, address); });
}

void addMailAliases(Mailname const& mailname)
{
    if (!mailname.callbacks.addMailAlias)
        return;
    std::string const& id = mailname.row["id"];
    WalkStep step("    restoring mail aliases for ", mailname.name);
    forEachRow(mailname.conn, "Mail Aliases cycle for " + mailname.name,
               "SELECT alias FROM mail_aliases WHERE mn_id=" + id, [&](Result::row_t const& row) {
                   std::string const& alias = row["alias"];
                   step.attempt([&] {
                       mailname.callbacks.addMailAlias(mailname.domain, mailname.name, alias);
                   });
               });
}

void addMailGroup(Mailname const& mailname)
{
    if (!mailname.callbacks.addMailGroup || !mailname.has("mail_group"))
        return;
    std::string const& id = mailname.row["id"];
    WalkStep step("   executing mail group forwarding cycle for ", mailname.name);
    std::vector<std::string> addresses;
    // Leaves the group alone if its addresses could not be read: an empty group would lose mail.
    if (forEachRow(mailname.conn, "Mail Forwards cycle for " + mailname.name,
                   "SELECT address FROM mail_redir WHERE mn_id=" + id,
                   [&](Result::row_t const& row) { addresses.push_back(row["address"]); }))
        step.attempt(
            [&] { mailname.callbacks.addMailGroup(mailname.domain, mailname.name, addresses); });
}

void processMailname(Mailname const& mailname, long default_quota)
{
    addMailname(mailname);
    setMailbox(mailname);
    setMailboxQuota(mailname, default_quota);
    addMailForward(mailname);
    addMailAliases(mailname);
    addMailGroup(mailname);
}

} // namespace

void processMailnamesCycle(std::string const& domainId, std::string const& domainName,
                           MailsrvEntitiesCallbacks& callbacks, Connection& conn)
{
    long const default_quota =
        callbacks.setMailboxQuota ? defaultQuota(domainId, domainName, conn) : unset_quota;
    forEachRow(
        conn, "Mail names cycle for " + domainName,
        "SELECT id, mail_name, postbox, mail_group, redirect, redir_addr, mbox_quota FROM "
        "mail  WHERE dom_id=" +
            domainId,
        [&](Result::row_t const& row) {
            processMailname({domainName, row["mail_name"], row, callbacks, conn}, default_quota);
        });
}

} // namespace orvek::mail::restore
