// entity_walker - passes every mail entity of the panel's database to a callback
//
// The walk reads the database in a fixed order; the callbacks decide what to do with an entity. An
// empty callback is skipped, together with the queries it would need. A callback may raise
// anything: its item is given up and the walk continues with the next one.
//
// Failures: a database that does not answer at the start raises mError "connection failed"; these
// functions raise nothing else. A failed query, an unreadable row and a bad value are warnings on
// orvek::uerr, and the walk continues. A setting that is missing or cannot be read is the empty
// text.
//
// Progress goes to std::clog, a line a step, when ORVEK_INSTALLER_DEBUG is in the environment and
// not "0". The failure of a callback is reported only there.
//
// Domains are in UTF-8, their aliases in ASCII, as the panel stores them; quotas and sizes are in
// bytes, times in minutes.
//
// No command calls these; they are for callers to come: getDomainCatchallParam,
// processDomainCycle, processMailnamesCycle, processWhiteLists, walkMailServerEntities.

#ifndef MAILVEK_RESTORE_ENTITY_WALKER_H
#define MAILVEK_RESTORE_ENTITY_WALKER_H

#include "mysql/connection.h"

#include <functional>
#include <string>
#include <vector>

namespace orvek::mail::restore {

// For whom the server relays.
enum class MailRelayType
{
    open = 0,
    closed = 1,
    auth = 2,
};

// What happens to mail for an unknown address of a domain.
enum class DomainCatchallType
{
    bounce, // with a message
    catch_, // by an address
    reject,
};

struct MailsrvEntitiesCallbacks
{
    using Text = std::string const&;
    using List = std::vector<std::string> const&;

    // domain, enabled
    std::function<void(Text, bool)> addDomain;
    // domain, alias, enabled
    std::function<void(Text, Text, bool)> addDomainAlias;
    // domain, what to do, its message or address
    std::function<void(Text, DomainCatchallType, Text)> setDomainCatchall;
    // domain, mailname
    std::function<void(Text, Text)> addMailname;
    // domain, mailname, address
    std::function<void(Text, Text, Text)> addMailForward;
    // domain, mailname, all of its addresses
    std::function<void(Text, Text, List)> addMailGroup;
    // domain, mailname, alias
    std::function<void(Text, Text, Text)> addMailAlias;
    // address, bits of its network
    std::function<void(Text, unsigned short)> addWhitelistNetwork;
    // domain
    std::function<void(Text)> addBlacklistedDomain;
    // servers; empty when blocking lists are switched off
    std::function<void(List)> setRblServers;
    // enabled
    std::function<void(bool)> setSubmission;
    // bytes
    std::function<void(long)> setMaxMessageSize;
    // mode, authentication by SMTP, by POP before SMTP, the minutes that the latter lasts
    std::function<void(MailRelayType, bool, bool, short)> setRelay;
    // enabled
    std::function<void(bool)> setShortNames;
    // domain, mailname, enabled
    std::function<void(Text, Text, bool)> setMailbox;
    // domain, mailname, bytes; -1 when neither the mailbox nor its domain has a quota
    std::function<void(Text, Text, long)> setMailboxQuota;
};

// The whole walk, on its own connection.
void walkMailServerEntities(MailsrvEntitiesCallbacks& callbacks);

// All domains with a mail service, each with its alias domains and mailnames.
void processDomainCycle(MailsrvEntitiesCallbacks& callbacks, mysql::Connection& conn);

// The mailnames of one domain. The id goes into statements as it is.
void processMailnamesCycle(std::string const& domainId, std::string const& domainName,
                           MailsrvEntitiesCallbacks& callbacks, mysql::Connection& conn);

// The networks that are whitelisted permanently, without those of POP logins.
void processWhiteLists(MailsrvEntitiesCallbacks& callbacks, mysql::Connection& conn);

// One parameter of the domain's services; empty if it is missing.
std::string getDomainCatchallParam(std::string const& domainId, std::string const& domainName,
                                   std::string const& name, mysql::Connection& conn);

} // namespace orvek::mail::restore

#endif
