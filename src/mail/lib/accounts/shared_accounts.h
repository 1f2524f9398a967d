// shared_accounts - the connection of an open transaction
//
// MailAuthConnection takes the connection and its statements from here while a MailAuthTransaction
// is open. It is opened at the first use. A statement is compiled once and kept to the end.

#ifndef MAILVEK_MAIL_LIB_ACCOUNTS_SHARED_ACCOUNTS_H
#define MAILVEK_MAIL_LIB_ACCOUNTS_SHARED_ACCOUNTS_H

#include "mail/lib/accounts/mail_auth_connection.h"

#include <string>
#include <unordered_map>

class SharedAccounts
{
public:
    SharedAccounts();
    ~SharedAccounts();
    SharedAccounts(SharedAccounts const&) = delete;
    SharedAccounts& operator=(SharedAccounts const&) = delete;

    // That of the open transaction, or null.
    static SharedAccounts* current();

    // Gives to the connection. False, unreported, when the database cannot be opened; what to has
    // then is its own.
    [[nodiscard]] bool lend(MailAuthConnection& to, int flags);
    // Begins the transaction unless it has begun. False only after a failed wait: a failure of
    // another kind is left to the statement that follows.
    [[nodiscard]] bool begin();
    // The compiled statement, or null for the caller to compile and keep().
    sqlite3_stmt* find(char const* query);
    void keep(char const* query, sqlite3_stmt* statement);

    // Commits what has been begun and closes. 0, or -1 reported.
    [[nodiscard]] int commit();

private:
    void close();

    static SharedAccounts* open_one;

    MailAuthConnection connection;
    std::unordered_map<std::string, sqlite3_stmt*> statements;
    bool begun = false;
};

#endif
