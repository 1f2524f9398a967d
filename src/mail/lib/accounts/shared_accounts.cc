#include "mail/lib/accounts/shared_accounts.h"

#include "lib/report/log_failure.h"
#include "mail/lib/accounts/mail_auth_style.h"

#include <utility>

SharedAccounts* SharedAccounts::open_one = nullptr;

SharedAccounts::SharedAccounts()
{
    open_one = this;
}

SharedAccounts::~SharedAccounts()
{
    close();
    open_one = nullptr;
}

SharedAccounts* SharedAccounts::current()
{
    return open_one;
}

bool SharedAccounts::lend(MailAuthConnection& to, int flags)
{
    // Opens for writing even if a read comes first, because changes will use the same connection. A
    // read must not create a missing file.
    int const wanted = flags & SQLITE_OPEN_READONLY ? SQLITE_OPEN_READWRITE : flags;
    if (!connection.isOpen() && !connection.open(wanted)) {
        to.db = std::exchange(connection.db, nullptr);
        return false;
    }
    to.shared = this;
    to.db = connection.db;
    return true;
}

bool SharedAccounts::begin()
{
    // SQLite may have rolled the transaction back. commit() notices that; no second one is begun.
    if (begun)
        return true;
    sqlite3* const db = connection.db;
    char* error = nullptr;
    // Deliberate: not deferred. If two processes read first and then wrote, one of them would wait
    // in vain.
    int const result = connection.execute("BEGIN IMMEDIATE", &error);
    sqlite3_free(error);
    if (connection.isAbandoned()) {
        connection.db = db;
        connection.abandoned = false;
        return false;
    }
    begun = result == SQLITE_OK;
    return true;
}

sqlite3_stmt* SharedAccounts::find(char const* query)
{
    connection.startCounting();
    auto const kept = statements.find(query);
    return kept == statements.end() ? nullptr : kept->second;
}

void SharedAccounts::keep(char const* query, sqlite3_stmt* statement)
{
    statements.emplace(query, statement);
}

int SharedAccounts::commit()
{
    int result = 0;
    if (begun) {
        sqlite3* const db = connection.db;
        char* error = nullptr;
        if (connection.execute("COMMIT", &error) != SQLITE_OK)
            result = log_failure("Unable to commit the changes of database %s: %s", mailAuthDB,
                                 error ? error : connection.message());
        sqlite3_free(error);
        connection.db = db;
    }
    close();
    return result;
}

// Rolls back what has not been committed.
void SharedAccounts::close()
{
    begun = false;
    for (auto const& [query, statement] : std::exchange(statements, {}))
        sqlite3_finalize(statement);
    connection.finish();
    connection.abandoned = false;
}
