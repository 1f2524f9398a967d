#include "mail/lib/accounts/mail_auth_iterate.h"

#include "lib/report/owned.h"
#include "lib/report/product_log.h"
#include "mail/lib/accounts/mail_auth_connection.h"

#include <cstdio>
#include <cstring>

#include <syslog.h>

namespace {

constexpr char select_one[] =
    "SELECT u.userPassword AS password, u.cmusaslsecretPLAIN AS encPassword, u.status AS "
    "userDisabled, d.status AS domainDisabled FROM users AS u, domains AS d WHERE u.dom_id = d.id "
    "AND u.name=? AND d.name=?";
constexpr char select_all[] =
    "SELECT u.name || '@' || d.name as mailAddress, u.userPassword AS password, "
    "u.cmusaslsecretPLAIN AS encPassword, u.status AS userDisabled, d.status AS domainDisabled "
    "FROM users AS u, domains AS d WHERE u.dom_id = d.id";

// The part of a row that a visitor gets. password is null when both columns are.
struct Account
{
    char const* password;
    MailAuthFlagsT flags;
};

// Reads four columns from first on: plain password, encrypted password, user's status, domain's
// status.
Account account_of(MailAuthConnection const& db, int first)
{
    char const* password = db.text(first);
    char const* const secret = db.text(first + 1);
    int flags = 0;
    if ((!password || !*password) && secret) {
        password = secret;
        flags |= MAIL_AUTH_CRYPTED;
    }
    if (db.number(first + 2) != 0)
        flags |= MAIL_AUTH_DISABLED;
    if (db.number(first + 3) != 0)
        flags |= MAIL_DOMAIN_AUTH_DISABLED;
    return {password, static_cast<MailAuthFlagsT>(flags)};
}

// Returns the visitor's result, or so_far for a skipped row.
int visit_row(MailAuthConnection const& db, MailAuthVisitor checkerFunc, void* data, int so_far)
{
    char const* const address = db.text(0);
    if (!address || !*address) {
        orvek_log(LOG_WARNING, "NULL or empty mail address stored in the database, skipped");
        return so_far;
    }
    Account const account = account_of(db, 1);
    if (!account.password) {
        orvek_log(LOG_ERR,
                  "empty password properties (both plain and encrypted) for user %s, skipped",
                  address);
        return so_far;
    }
    return checkerFunc(address, account.password, account.flags, data);
}

int check_row(MailAuthConnection& db, char const* mailAddress, MailAuthVisitor checkerFunc,
              void* data)
{
    Account const account = account_of(db, 0);
    if (!account.password)
        return db.failure("NULL password fields (noth plain and encrypted) for user %s, skipped",
                          mailAddress);
    int const result = checkerFunc(mailAddress, account.password, account.flags, data);
    return db.finish() == 0 ? result : -1;
}

// Null, reported, without memory.
CString iteration_query(char const* predicate)
{
    char* query = nullptr;
    bool const narrowed = predicate && *predicate;
    int const length = narrowed ? asprintf(&query, "%s %s", select_all, predicate)
                                : asprintf(&query, "%s", select_all);
    if (length < 0) {
        orvek_log(LOG_CRIT, "Insufficient memory");
        return nullptr;
    }
    return CString(query);
}

} // namespace

int mailAuthCheck(char const* mailAddress, MailAuthVisitor checkerFunc, void* data)
{
    char const* const at = strchr(mailAddress, '@');
    if (!at || at == mailAddress || !at[1]) {
        orvek_log(LOG_ERR, "Invalid mail address '%s'", mailAddress);
        return -1;
    }
    int const length = static_cast<int>(at - mailAddress);
    char const* const domain = at + 1;

    MailAuthConnection db;
    if (db.openForReading() != 0 || db.prepare(select_one) != 0)
        return -1;
    if (!db.bind(1, mailAddress, length))
        return db.failure(
            "Unable to bind parameter mailname '%.*s' to SQL statement for query '%s': %s", length,
            mailAddress, select_one, db.message());
    if (!db.bind(2, domain))
        return db.failure(
            "Unable to bind parameter domain name '%s' to SQL statement for query '%s': %s", domain,
            select_one, db.message());

    int const result = db.step();
    if (result == SQLITE_ROW)
        return check_row(db, mailAddress, checkerFunc, data);
    if (result != SQLITE_DONE)
        return db.failure("Unable to execute the user selection query: %s", db.message());
    orvek_log(LOG_INFO, "No such user '%s' in mail authorization database", mailAddress);
    return db.finish() == 0 ? 1 : -1;
}

int mailAuthCheckShort(char const* mailname, MailAuthVisitor checkerFunc, void* data)
{
    sqlite3* db = nullptr;
    sqlite3_stmt* statement = nullptr;
    if (prepareIterateDBQuery(&db, &statement, "AND u.name=?") != 0)
        return -1;
    MailAuthConnection connection(db, statement);
    if (!connection.bind(1, mailname))
        return connection.failure("Unable to bind parameter mailname '%s' to  SQL statement: %s",
                                  mailname, connection.message());
    connection.release(&db, &statement);
    return doIterateDB(db, statement, checkerFunc, data);
}

int mailAuthIterateAll(MailAuthVisitor checkerFunc, void* data)
{
    sqlite3* db = nullptr;
    sqlite3_stmt* statement = nullptr;
    if (prepareIterateDBQuery(&db, &statement, "ORDER BY d.name, u.name") != 0)
        return -1;
    return doIterateDB(db, statement, checkerFunc, data);
}

int prepareIterateDBQuery(sqlite3** pdb, sqlite3_stmt** pPStmt, char const* predicate)
{
    CString const query = iteration_query(predicate);
    MailAuthConnection db;
    if (!query || db.openAloneForReading() != 0 || db.prepare(query.get()) != 0)
        return -1;
    db.release(pdb, pPStmt);
    return 0;
}

int doIterateDB(sqlite3* db, sqlite3_stmt* pStmt, MailAuthVisitor checkerFunc, void* data)
{
    MailAuthConnection connection(db, pStmt);
    int result = 1;
    while (result > 0) {
        int const step = connection.step();
        if (step == SQLITE_DONE)
            break;
        if (step != SQLITE_ROW)
            return connection.failure("Unable to execute the user selection query: %s",
                                      connection.message());
        result = visit_row(connection, checkerFunc, data, result);
    }
    return connection.finish() == 0 ? result : -1;
}
