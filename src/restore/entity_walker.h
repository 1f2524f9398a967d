// entity_walker - hands every mail entity of the panel's database to a callback
//
// The walk goes through the database in a fixed order; what a mail server is to do about an
// entity is the caller's. A callback that is left empty is skipped together with the work that
// would serve it. A callback may raise whatever it likes: that item is given up and the walk
// goes on behind it.
//
// Failures: a database that does not answer at the start raises mError "connection failed", and
// nothing else leaves a function below. A query that fails, a row that cannot be read and a
// value that makes no sense are warnings on orvek::uerr; the rest goes on. A setting that the
// panel does not have reads as the empty text, and so does one that could not be read.
//
// What is being done is told on std::clog, a line a step, when ORVEK_INSTALLER_DEBUG is in the
// environment and not "0". The failure of a callback is told there too, and there alone.
//
// Domains are in UTF-8, but their aliases as the panel keeps them, in ASCII; quotas and sizes in
// bytes, times in minutes.

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

// What becomes of mail to an address that a domain does not have.
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
    // servers; none where the panel has blocking lists switched off
    std::function<void(List)> setRblServers;
    // enabled
    std::function<void(bool)> setSubmission;
    // bytes
    std::function<void(long)> setMaxMessageSize;
    // mode, authentication by SMTP, by POP before SMTP, how long the latter lasts
    std::function<void(MailRelayType, bool, bool, short)> setRelay;
    // enabled
    std::function<void(bool)> setShortNames;
    // domain, mailname, enabled
    std::function<void(Text, Text, bool)> setMailbox;
    // domain, mailname, bytes; -1 where neither the mailbox nor its domain has a quota
    std::function<void(Text, Text, long)> setMailboxQuota;
};

// The whole walk, on a connection of its own.
void walkMailServerEntities(MailsrvEntitiesCallbacks& callbacks);

// All domains that have a mail service, each with its aliases and mailnames.
void processDomainCycle(MailsrvEntitiesCallbacks& callbacks, mysql::Connection& conn);

// The mailnames of one domain, whose id goes into statements as it stands.
void processMailnamesCycle(std::string const& domainId, std::string const& domainName,
                           MailsrvEntitiesCallbacks& callbacks, mysql::Connection& conn);

// The networks that are whitelisted for good; those that a POP login has let in are not.
void processWhiteLists(MailsrvEntitiesCallbacks& callbacks, mysql::Connection& conn);

// One parameter of the domain's services; the empty text if there is none.
std::string getDomainCatchallParam(std::string const& domainId, std::string const& domainName,
                                   std::string const& name, mysql::Connection& conn);

} // namespace orvek::mail::restore

#endif
