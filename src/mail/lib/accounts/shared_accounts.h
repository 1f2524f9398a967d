// shared_accounts - the connection of an open transaction
//
// While a MailAuthTransaction is open, MailAuthConnection gets its connection and statements here.
// The connection is opened at the first use. A statement is compiled once and kept to the end.

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

    // The connection of the open transaction, or null.
    static SharedAccounts* current();

    // Lends the connection to "to". False, unreported, when the database cannot be opened; "to"
    // then has its own connection.
    [[nodiscard]] bool lend(MailAuthConnection& to, int flags);
    // Begins the transaction unless it has begun. False only after a failed wait: the next
    // statement reports any other failure.
    [[nodiscard]] bool begin();
    // The compiled statement, or null for the caller to compile and keep().
    sqlite3_stmt* find(char const* query);
    void keep(char const* query, sqlite3_stmt* statement);

    // Commits the transaction, if one was begun, and closes. 0, or -1 reported.
    [[nodiscard]] int commit();

private:
    void close();

    static SharedAccounts* open_one;

    MailAuthConnection connection;
    std::unordered_map<std::string, sqlite3_stmt*> statements;
    bool begun = false;
};

#endif
