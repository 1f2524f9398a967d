#include "restore/entity_walker.h"

#include "restore/row_cycle.h"
#include "restore/walk_step.h"
#include "util/idn.h"

namespace orvek::mail::restore {

using namespace orvek::mysql;

namespace {

// The steps of one domain share this. The name is in Unicode.
struct Domain
{
    std::string const& id;
    std::string const& name;
    MailsrvEntitiesCallbacks& callbacks;
    Connection& conn;

    std::string parameter(char const* parameter_name) const
    {
        return getDomainCatchallParam(id, name, parameter_name, conn);
    }
};

void addDomain(Domain const& domain, bool enabled)
{
    if (domain.callbacks.addDomain)
        walkStep("  restoring basic records for ", domain.name,
                 [&] { domain.callbacks.addDomain(domain.name, enabled); });
}

void applyCatchall(Domain const& domain)
{
    auto const& set = domain.callbacks.setDomainCatchall;
    std::string const kind = domain.parameter("nonexist_mail");
    if (kind == "bounce")
        set(domain.name, DomainCatchallType::bounce, domain.parameter("bounce_mess"));
    else if (kind == "catch")
        set(domain.name, DomainCatchallType::catch_, domain.parameter("catch_addr"));
    else
        set(domain.name, DomainCatchallType::reject, "");
}

void setDomainCatchall(Domain const& domain)
{
    if (domain.callbacks.setDomainCatchall)
        walkStep("  restoring catchall/reject settings for ", domain.name,
                 [&] { applyCatchall(domain); });
}

void addDomainAliases(Domain const& domain)
{
    if (!domain.callbacks.addDomainAlias)
        return;
    WalkStep step("  restoring domain aliases for ", domain.name);
    forEachRow(domain.conn, "Domains Alias cycle for domain " + domain.name,
               "SELECT    name, status FROM domainaliases WHERE dom_id='" + domain.id +
                   "'   AND mail='true'",
               [&](Result::row_t const& row) {
                   std::string const& alias = row["name"];
                   long const status = row["status"];
                   step.attempt(
                       [&] { domain.callbacks.addDomainAlias(domain.name, alias, status == 0); });
               });
}

void processDomain(Result::row_t const& row, MailsrvEntitiesCallbacks& callbacks, Connection& conn)
{
    std::string const& id = row["id"];
    std::string const& ascii_name = row["name"];
    long const status = row["status"];
    // Deliberate: reads the column only to fail on a row without it. The value is read again later,
    // with its parameters.
    static_cast<void>(row["nonExisting"]);
    std::string const name = idn::toUtf8(ascii_name);

    Domain const domain{id, name, callbacks, conn};
    addDomain(domain, status == 0);
    setDomainCatchall(domain);
    addDomainAliases(domain);
    tellProgress("  executing mailnames restoration cycle for " + name + ":");
    processMailnamesCycle(id, name, callbacks, conn);
}

} // namespace

std::string getDomainCatchallParam(std::string const& domainId, std::string const& domainName,
                                   std::string const& name, Connection& conn)
{
    // Deliberate: the text says "Catcall".
    return firstValue(conn, "Domain Catcall configuration for domain " + domainName,
                      "SELECT p.value AS value  FROM Parameters p, DomainServices ds    WHERE "
                      "p.id = ds.parameters_id      AND p.parameter='" +
                          conn.escape(name.c_str(), 0) + "'      AND ds.dom_id=" + domainId,
                      "value")
        .value_or("");
}

void processDomainCycle(MailsrvEntitiesCallbacks& callbacks, Connection& conn)
{
    forEachRow(conn, "top Domains cycle",
               "SELECT    d.id AS id, d.name AS name,   (d.status || s.status) AS status,   "
               "p.value AS nonExisting FROM domains d, DomainServices s, Parameters p    WHERE "
               "d.id=s.dom_id AND s.type='mail'      AND p.id=s.parameters_id AND "
               "p.parameter='nonexist_mail'",
               [&](Result::row_t const& row) { processDomain(row, callbacks, conn); });
}

} // namespace orvek::mail::restore
