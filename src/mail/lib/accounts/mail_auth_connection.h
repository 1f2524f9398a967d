// mail_auth_connection - one connection to the mail authentication database
//
// Owns the connection and the one statement that runs on it, and waits for other processes: a
// call that finds the database busy is repeated at once, then after 10 microseconds, after 20,
// after 30, and so on. Each call starts its wait at zero. prepare and close are repeated while the
// database is busy, step and execute also while it is locked. A repeated step is reset first.
//
// The wait ends when nanosleep fails: a signal interrupts it, or the wait has grown to a second,
// which nanosleep refuses as nanoseconds. The operation then ends at once. The connection and its
// statement are abandoned, neither finalized nor closed, and every later call on this object fails
// without a report. So a function that gets -1 from another may always report, finish and return:
// nothing is closed twice.
//
// It also ends when the command has waited for two minutes in all (account_wait.h): the operation
// fails and reports that the database is locked.
//
// Others can write the database, so what it contains is not trusted: SQLite touches no other file
// (see account_files.h), runs no view or function with side effects, and gives up on a statement
// that takes very long.
//
// Failures are reported by orvek_log at priority 3, here or through failure(), which also
// closes. errno stays as the failing call left it.
//
// The database is kept in WAL mode, in which readers do not wait for writers: POP3, IMAP and SASL
// read it without waiting. A connection that has changed something sets that mode if needed, lets
// only root write the database (see account_files.h) and empties the write-ahead log, so that the
// database's file alone is whole. If a reader blocks that for a second, the next connection does
// it. The empty log and its index stay: removing them would shut readers out for a moment.
//
// While a MailAuthTransaction is open, openForWriting and openForReading use its connection
// (SharedAccounts) instead of a new one, and closing leaves it open.
//
// No command calls these; they are for callers to come:
// MailAuthConnection::openAloneForReading, MailAuthConnection::release.

#ifndef MAILVEK_MAIL_LIB_ACCOUNTS_MAIL_AUTH_CONNECTION_H
#define MAILVEK_MAIL_LIB_ACCOUNTS_MAIL_AUTH_CONNECTION_H

#include "mail/lib/accounts/account_files.h"

#include <sqlite3.h>

#include <cstdarg>
#include <ctime>
#include <optional>

class SharedAccounts;

class MailAuthConnection
{
public:
    MailAuthConnection() = default;
    // Takes ownership of what prepareIterateDBQuery returned.
    MailAuthConnection(sqlite3* db, sqlite3_stmt* statement);
    // Closes what is still open, without waiting. That is the case only when a visitor raises.
    ~MailAuthConnection();
    MailAuthConnection(MailAuthConnection const&) = delete;
    MailAuthConnection& operator=(MailAuthConnection const&) = delete;

    // 0, or -1 reported. A missing file is created empty, so the first statement fails and reports.
    // A file that may only be read fails at the first change. A link, a FIFO and a file with two
    // names cannot be opened.
    [[nodiscard]] int openForWriting();
    [[nodiscard]] int openForReading();
    // As openForReading, but never shared, so that release may hand the connection out.
    [[nodiscard]] int openAloneForReading();

    // 0, or -1 reported and closed.
    [[nodiscard]] int prepare(char const* query);

    // Places count from 1. The bytes are not copied: they must outlive the statement.
    [[nodiscard]] bool bind(int place, char const* text);
    [[nodiscard]] bool bind(int place, char const* text, int length);
    [[nodiscard]] bool bind(int place, long long number);

    // The result of sqlite3_step; after a failed wait neither SQLITE_ROW nor SQLITE_DONE.
    [[nodiscard]] int step();
    // The result of sqlite3_exec, SQLITE_OK or not. The caller frees *error with sqlite3_free.
    [[nodiscard]] int execute(char const* script, char** error);

    // Columns count from 0. The text of a column is valid until the next step, and null for NULL.
    char const* text(int column) const;
    long long number(int column) const;
    long long lastInserted() const;

    // The message of the database, or a general one without a connection.
    char const* message() const;
    bool isOpen() const { return db != nullptr; }
    bool isAbandoned() const { return abandoned; }

    void finalize();
    // Finalizes and closes. 0, also when already closed; -1 after a failed wait.
    int finish();
    // Both report, except after a failed wait, and return -1. failure also closes; stepFailure only
    // finalizes and leaves the connection usable.
    int failure(char const* fmt, ...) __attribute__((format(printf, 2, 3)));
    int stepFailure(char const* fmt, ...) __attribute__((format(printf, 2, 3)));
    // Hands connection and statement to the caller.
    void release(sqlite3** pdb, sqlite3_stmt** pPStmt);

private:
    friend class SharedAccounts;

    [[nodiscard]] bool open(int flags);
    [[nodiscard]] bool borrow(SharedAccounts* lender, int flags);
    void setUp();
    void settle();
    bool setMode();
    void startCounting();
    static int countSteps(void* connection);

    template<class Call, class Again>
    int repeated(Call call, Again again);
    template<class Call, class Again>
    int attempted(Call call, Again again);
    void report(char const* fmt, va_list args) const __attribute__((format(printf, 2, 0)));

    std::optional<AccountFiles> files;
    SharedAccounts* shared = nullptr; // the lender of the connection, or null for an own one
    sqlite3* db = nullptr;
    sqlite3_stmt* statement = nullptr;
    // Batches of steps_in_batch steps of SQLite's virtual machine: of all statements on an own
    // connection, or of one statement on a shared one.
    long batches = 0;
    std::time_t secondsBefore = 0; // of the processor's time, when they began
    bool abandoned = false;
};

#endif
