#include "mail/lib/accounts/mail_auth_domains.h"

#include "mail/lib/accounts/mail_auth_connection.h"

namespace {

constexpr char set_status[] = "UPDATE domains SET status=? WHERE name=?";
constexpr char select_id[] = "SELECT id FROM domains WHERE name=?";
constexpr char register_domain[] = "INSERT INTO domains (name, status) VALUES(?, ?)";
constexpr char rename_domain[] = "UPDATE domains SET name=? WHERE name=?";
constexpr char remove_domain[] = "DELETE FROM domains WHERE name=?";

// 1 and sets *id; 0 for an unknown domain; -1 for a failed look-up.
int find_domain(long long* id, MailAuthConnection& db, char const* domain)
{
    if (db.prepare(select_id) != 0)
        return -1;
    if (!db.bind(1, domain))
        return db.failure(
            "Unable to bind parameter domain name '%s' to SQL statement for query '%s': %s", domain,
            select_id, db.message());
    int const result = db.step();
    if (result != SQLITE_ROW && result != SQLITE_DONE)
        return db.stepFailure("Unable to execute the domain selection query: %s", db.message());
    if (result == SQLITE_ROW)
        *id = db.number(0);
    db.finalize();
    return result == SQLITE_ROW ? 1 : 0;
}

long long add_domain(char const* domain, MailAuthConnection& db, int status)
{
    if (db.prepare(register_domain) != 0)
        return -1;
    if (!db.bind(1, domain))
        return db.failure(
            "Unable to bind parameter domain name '%s' to SQL statement for query '%s': %s", domain,
            register_domain, db.message());
    if (!db.bind(2, status))
        return db.failure("Unable to bind parameter status '%d' for domain '%s' to SQL statement "
                          "for query '%s': %s",
                          status, domain, register_domain, db.message());
    if (db.step() != SQLITE_DONE)
        return db.stepFailure(
            "Unable to execute the mail domain authentication registration query: %s",
            db.message());
    db.finalize();
    return db.lastInserted();
}

} // namespace

int setDomainStatus(char const* domain, int status)
{
    MailAuthConnection db;
    if (db.openForWriting() != 0 || db.prepare(set_status) != 0)
        return -1;
    if (!db.bind(1, status))
        return db.failure("Unable to bind parameter status %d to  SQL statement for query '%s': %s",
                          status, set_status, db.message());
    if (!db.bind(2, domain))
        return db.failure(
            "Unable to bind parameter domain name '%s' to  SQL statement for query '%s': %s",
            domain, set_status, db.message());
    if (db.step() != SQLITE_DONE)
        return db.failure("Unable to execute the mail domain authorization status change query: %s",
                          db.message());
    return db.finish();
}

int mailAuthDisableDomain(char const* domain)
{
    return setDomainStatus(domain, 1);
}

int mailAuthEnableDomain(char const* domain)
{
    return setDomainStatus(domain, 0);
}

int mailAuthRenameDomain(char const* oldDomain, char const* newDomain)
{
    MailAuthConnection db;
    if (db.openForWriting() != 0 || db.prepare(rename_domain) != 0)
        return -1;
    if (!db.bind(1, newDomain))
        return db.failure(
            "Unable to bind parameter new domain name '%s' to SQL statement for query '%s': %s",
            newDomain, rename_domain, db.message());
    if (!db.bind(2, oldDomain))
        return db.failure(
            "Unable to bind parameter old domain name '%s' to SQL statement for query '%s': %s",
            oldDomain, rename_domain, db.message());
    if (db.step() != SQLITE_DONE)
        return db.failure("Unable to execute the mail domain authorization name change query: %s",
                          db.message());
    return db.finish();
}

int mailAuthRemoveDomain(char const* domain)
{
    MailAuthConnection db;
    if (db.openForWriting() != 0 || db.prepare(remove_domain) != 0)
        return -1;
    if (!db.bind(1, domain))
        return db.failure(
            "Unable to bind parameter domain name '%s' to SQL statement for query '%s': %s", domain,
            remove_domain, db.message());
    if (db.step() != SQLITE_DONE)
        return db.failure("Unable to execute the domain mail authorization removal query: %s",
                          db.message());
    return db.finish();
}

long long getDomainId(char const* domain, MailAuthConnection& db, MailAuthFlagsT flags)
{
    long long id = -1;
    if (find_domain(&id, db, domain) != 0)
        return id;
    if (flags & MAIL_AUTH_DO_NOT_CHANGE)
        return -1;
    return add_domain(domain, db, flags ? 1 : 0);
}
