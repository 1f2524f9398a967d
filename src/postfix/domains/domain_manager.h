// domain_manager - mail domains: their records in the maps and their directories
//
// No state. A form that takes a helper adds to the caller's batch; the others apply each change
// at once. What a domain has in the maps stands in map_names.h. The alias domains, mailnames
// and mail aliases of a domain are those that the panel's database holds.
//
// createDomain makes the directory and the records; a disabled domain gets its standard
// addresses and no record among the enabled domains. A domain that was an alias until now stops
// being one. removeDomain also clears the two address maps of everything in the domain; the
// bounce pipe of the domain stays in the aliases map, here and after removeCatchall.
//
// Failures: what the maps and the directories raise. Deliberate: alias domains that cannot be
// read are reported by the query and count as none, so that the domain itself is served. When
// the mailnames for a new alias domain cannot be read, PostfixDatabaseError is raised behind the
// report. Steps done before a failure stay done, except those of renameDomain: see
// reversible_rename.h.

#ifndef MAILVEK_POSTFIX_DOMAINS_DOMAIN_MANAGER_H
#define MAILVEK_POSTFIX_DOMAINS_DOMAIN_MANAGER_H

#include "postfix/domains/on_removal.h"
#include "postfix/maps/batch_database_helper.h"

#include <string>
#include <vector>

namespace orvek::mail::postfix {

class DomainManager
{
public:
    static void createDomain(std::string const& domain, bool disabled);
    // quota: bytes for each mailbox, negative for no limit.
    static void createDomain(std::string const& domain, long quota, bool disabled);
    static void createDomainRecord(BatchDatabaseHelper& helper, std::string const& domain,
                                   bool disabled);
    static void removeDomain(std::string const& domain, OnRemoval removal);
    static void renameDomain(std::string const& oldName, std::string const& newName);

    static void enableDomain(std::string const& domain);
    static void enableDomain(BatchDatabaseHelper& helper, std::string const& domain);
    static void disableDomain(std::string const& domain);

    // Mail for an unknown address of the domain or of one of its alias domains goes to address.
    static void createCatchall(std::string const& domain, std::string const& address);
    static void createCatchall(BatchDatabaseHelper& helper, std::string const& domain,
                               std::string const& address);
    static void createCatchallFor(BatchDatabaseHelper& helper,
                                  std::vector<std::string> const& domains,
                                  std::string const& address);
    // Ends a bounce as well.
    static void removeCatchall(std::string const& domain);
    static void removeCatchall(BatchDatabaseHelper& helper, std::string const& domain);

    // Such mail goes to the bounce program, with the message as its one argument; its newlines
    // become blanks. An empty message gives no argument.
    static void setBounce(std::string const& domain, std::string const& message);
    static void setBounce(BatchDatabaseHelper& helper, std::string const& domain,
                          std::string const& message);
    static void setBounceFor(BatchDatabaseHelper& helper, std::vector<std::string> const& domains,
                             std::string const& message);

    // postmaster and its like, which belong to the server and not to a mailbox of the domain.
    static void createStandardDomainAddresses(std::string const& domain);
    static void createStandardDomainAddresses(BatchDatabaseHelper& helper,
                                              std::string const& domain);
    static void removeStandardDomainAddresses(std::string const& domain);
    static void removeStandardDomainAddresses(BatchDatabaseHelper& helper,
                                              std::string const& domain);

    static void createDomainAlias(std::string const& domain, std::string const& alias);
    static void createDomainAlias(BatchDatabaseHelper& helper, std::string const& domain,
                                  std::string const& alias);
    static void removeDomainAlias(std::string const& alias);
    static void renameDomainAlias(std::string const& oldName, std::string const& newName);

    // Takes all that is in the domain, and with subdomains in those, out of both address maps.
    static void removeDomainReferences(std::string const& domain, bool subdomains);
};

} // namespace orvek::mail::postfix

#endif
