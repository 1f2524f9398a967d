#include "restore/entity_walker.h"

#include "restore/entity_walker_settings.h"
#include "restore/ip_mask.h"
#include "restore/row_cycle.h"
#include "restore/walk_step.h"
#include "util/idn.h"
#include "util/uerr.h"

#include <exception>
#include <optional>

namespace orvek::mail::restore {

using namespace orvek::mysql;

namespace {

// The Unicode form. Nothing, after a warning, when the name cannot be converted.
std::optional<std::string> unicodeName(std::string const& name)
{
    try {
        return idn::toUtf8(name);
    } catch (std::exception const& e) {
        uerr << "Warning: unable to de-IDN'ize domain name '" << name << "': " << e.what()
             << ", ignored" << std::endl;
        return {};
    }
}

void processBlackDomains(MailsrvEntitiesCallbacks& callbacks, Connection& conn)
{
    if (!callbacks.addBlacklistedDomain)
        return;
    WalkStep step(" executing the blacklisted domains restoration cycle");
    forEachRow(conn, "Blacklisted Domains cycle", "SELECT domain from badmailfrom",
               [&](Result::row_t const& row) {
                   if (auto const domain = unicodeName(row["domain"]))
                       step.attempt([&] { callbacks.addBlacklistedDomain(*domain); });
               });
}

} // namespace

void processWhiteLists(MailsrvEntitiesCallbacks& callbacks, Connection& conn)
{
    if (!callbacks.addWhitelistNetwork)
        return;
    WalkStep step(" executing the whitelist networks restoration cycle");
    forEachRow(conn, "White IPs/Networks cycle",
               "SELECT ip_address, ip_mask FROM smtp_poplocks WHERE lock_time IS NULL",
               [&](Result::row_t const& row) {
                   std::string const& address = row["ip_address"];
                   unsigned short const bits = prefixLength(row["ip_mask"]);
                   if (bits < no_prefix)
                       step.attempt([&] { callbacks.addWhitelistNetwork(address, bits); });
               });
}

void walkMailServerEntities(MailsrvEntitiesCallbacks& callbacks)
{
    Connection conn(/*connect_now=*/true);
    tellProgress("Restoring Mail Server Entities from Orvek DB:");
    tellProgress(" executing the central domain restoration cycle:");
    processDomainCycle(callbacks, conn);
    processWhiteLists(callbacks, conn);
    processBlackDomains(callbacks, conn);
    restoreSettings(callbacks, conn);
}

} // namespace orvek::mail::restore
