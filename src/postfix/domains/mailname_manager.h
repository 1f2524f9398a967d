// mailname_manager - mailnames: their records in the maps, their homes and delivery files
//
// The class keeps no state. A form that takes a batch adds to it; the other forms apply each change
// at once. A mailname has a record of its mailbox and one address under its domain and under each
// alias domain that the panel's database holds. A mail alias has such addresses too. map_names.h
// shows the records.
//
// removeMailname leaves the mail aliases of the mailname: the caller removes them.
//
// renameMailname looks first: a new name with a mailbox, an address or a home is refused by
// PostfixDatabaseError before the first step, but for a rename that was interrupted. That one is
// told by its traces (rename_state.h) and completed. Where everything has the new name, it was
// interrupted if its note is still there (name_claim.h) or the mailbox record tells the old name;
// otherwise the new name is taken. Whoever makes or renames a mailname or a mail alias waits for
// others who do so under the same name.
//
// Failures: what the maps, the directories and the delivery file raise. Deliberate: alias domains
// that cannot be read are reported by the query and count as none. Steps done before a failure stay
// done, except those of renameMailname: see reversible_rename.h.
//
// No command calls these; they are for callers to come:
// MailnameManager::renameMailnameOnDomainAlias.

#ifndef MAILVEK_POSTFIX_DOMAINS_MAILNAME_MANAGER_H
#define MAILVEK_POSTFIX_DOMAINS_MAILNAME_MANAGER_H

#include "postfix/domains/on_removal.h"
#include "postfix/maps/batch_database_helper.h"

#include <functional>
#include <string>
#include <vector>

namespace orvek::mail::postfix {

class MailnameManager
{
public:
    // The mailbox gets the domain's limit.
    static void createMailname(std::string const& domain, std::string const& mailname);
    // quota: bytes, negative for no limit.
    static void createMailname(std::string const& domain, std::string const& mailname, long quota);
    static void createMailnameRecord(BatchDatabaseHelper& batch, std::string const& domain,
                                     std::string const& mailname);
    static void removeMailname(std::string const& domain, std::string const& mailname,
                               OnRemoval removal);

    // What else has to be renamed, after the records and the home. Returns whether all of it is.
    using Rest = std::function<bool()>;

    // Renames within the domain and within these of its alias domains, whose addresses change in
    // the same pass over the map as the domain's. Then carries out the rest, also when it completes
    // an interrupted rename.
    static void renameMailname(std::string const& domain, std::string const& oldName,
                               std::string const& newName,
                               std::vector<std::string> const& aliasDomains = {},
                               Rest const& rest = {});
    // The addresses under alias domains alone, without a look. The second one does nothing, and
    // rewrites no map, without alias domains.
    static void renameMailnameOnDomainAlias(std::string const& aliasDomain,
                                            std::string const& oldName, std::string const& newName);
    static void renameMailnameOnDomainAliases(std::vector<std::string> const& aliasDomains,
                                              std::string const& oldName,
                                              std::string const& newName);

    static void createMailAlias(std::string const& domain, std::string const& mailname,
                                std::string const& alias);
    static void createMailAlias(BatchDatabaseHelper& batch, std::string const& domain,
                                std::string const& mailname, std::string const& alias);
    // The mailname is not used: its own address identifies a mail alias.
    static void removeMailAlias(std::string const& domain, std::string const& mailname,
                                std::string const& alias);

    static void addForward(std::string const& domain, std::string const& mailname,
                           std::string const& address);
    static void removeForward(std::string const& domain, std::string const& mailname,
                              std::string const& address);
    static void enableDelivery(std::string const& domain, std::string const& mailname);
    static void disableDelivery(std::string const& domain, std::string const& mailname);
};

} // namespace orvek::mail::postfix

#endif
