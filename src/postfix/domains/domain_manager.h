// domain_manager - mail domains: their records in the maps and their directories
//
// The class keeps no state. A form that takes a batch adds to it; the other forms apply each change
// at once. map_names.h shows the records of a domain. The alias domains, mailnames and mail aliases
// of a domain are those in the panel's database.
//
// createDomain makes the directory and the records. A disabled domain gets its standard addresses
// but no record among the enabled domains. A domain that was an alias stops being one. removeDomain
// also removes everything in the domain from the two address maps. The bounce pipe of the domain
// stays in the aliases map, here and after removeCatchall.
//
// Failures: PostfixDatabaseError, before the first step, for a new domain, a new alias domain or a
// new name of either that is the server's own (see own_domains.h). What the maps and the
// directories raise. Deliberate: alias domains that cannot be read are reported by the query and
// count as none, so that the domain itself is served. When the mailnames for a new alias domain
// cannot be read, the query reports it and PostfixDatabaseError is raised.
// Steps done before a failure stay done, except those of renameDomain: see
// reversible_rename.h.
//
// renameDomain does not look whether the new name is free: its caller must. Whoever makes a domain
// or an alias domain, or renames an alias domain, waits for others who do so under the same name.
//
// No command calls these; they are for callers to come: DomainManager::renameDomain.

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
    static void createDomainRecord(BatchDatabaseHelper& batch, std::string const& domain,
                                   bool disabled);
    static void removeDomain(std::string const& domain, OnRemoval removal);
    static void renameDomain(std::string const& oldName, std::string const& newName);

    static void enableDomain(std::string const& domain);
    static void enableDomain(BatchDatabaseHelper& batch, std::string const& domain);
    static void disableDomain(std::string const& domain);

    // Mail for unknown addresses of the domain and of its alias domains goes to address.
    static void createCatchall(std::string const& domain, std::string const& address);
    static void createCatchall(BatchDatabaseHelper& batch, std::string const& domain,
                               std::string const& address);
    static void createCatchallFor(BatchDatabaseHelper& batch,
                                  std::vector<std::string> const& domains,
                                  std::string const& address);
    // Ends a bounce as well.
    static void removeCatchall(std::string const& domain);
    static void removeCatchall(BatchDatabaseHelper& batch, std::string const& domain);

    // Such mail goes to the bounce program, whose only argument is the message with blanks for its
    // newlines. An empty message gives no argument.
    static void setBounce(std::string const& domain, std::string const& message);
    static void setBounce(BatchDatabaseHelper& batch, std::string const& domain,
                          std::string const& message);
    static void setBounceFor(BatchDatabaseHelper& batch, std::vector<std::string> const& domains,
                             std::string const& message);

    // postmaster and the like, which belong to the server and not to a mailbox of the domain.
    static void createStandardDomainAddresses(std::string const& domain);
    static void createStandardDomainAddresses(BatchDatabaseHelper& batch,
                                              std::string const& domain);
    static void removeStandardDomainAddresses(std::string const& domain);
    static void removeStandardDomainAddresses(BatchDatabaseHelper& batch,
                                              std::string const& domain);

    static void createDomainAlias(std::string const& domain, std::string const& alias);
    static void createDomainAlias(BatchDatabaseHelper& batch, std::string const& domain,
                                  std::string const& alias);
    static void removeDomainAlias(std::string const& alias);
    static void renameDomainAlias(std::string const& oldName, std::string const& newName);
    // The same for an alias domain of domain, but looks first: PostfixDatabaseError for a new name
    // that is a domain, has a directory or is marked as an alias domain, before the map is changed.
    // A rename that was interrupted after the change is no such case: it is completed.
    static void renameDomainAlias(std::string const& domain, std::string const& oldName,
                                  std::string const& newName);

    // Removes what is in the domain, and with subdomains in those too, from both address maps.
    static void removeDomainReferences(std::string const& domain, bool subdomains);
};

} // namespace orvek::mail::postfix

#endif
