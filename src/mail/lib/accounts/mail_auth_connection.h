// mail_auth_connection - one connection to the mail authentication database
//
// Owns the connection and the one statement that runs on it, and holds the discipline of
// waiting for other processes: a call that finds the database busy is repeated at once, then
// after 10 microseconds, after 20, after 30, without a limit of its own. The wait starts anew
// for each call. prepare and close are repeated when the database is busy, step and execute
// also when it is locked; a step is preceded by a reset when it is repeated.
//
// The wait can be refused: by a signal, or at a second, which nanosleep does not take as
// nanoseconds. Then the operation has to end on the spot: the connection and its statement are
// abandoned, which is to say neither finalized nor closed, and everything that is asked of this
// object afterwards fails without a report. So a function that gets -1 from another may always
// report, finish and return: nothing is closed twice, whoever closed it first.
//
// Failures are reported by orvek_log at priority 3, here or through failure(), which also
// closes. errno stays as the failing call left it.

#ifndef MAILVEK_MAIL_LIB_ACCOUNTS_MAIL_AUTH_CONNECTION_H
#define MAILVEK_MAIL_LIB_ACCOUNTS_MAIL_AUTH_CONNECTION_H

#include <sqlite3.h>

#include <cstdarg>

class MailAuthConnection
{
public:
    MailAuthConnection() = default;
    // Takes over what prepareIterateDBQuery handed out.
    MailAuthConnection(sqlite3* db, sqlite3_stmt* statement);
    // Closes what was left open, without waiting; that happens only when a visitor raises.
    ~MailAuthConnection();
    MailAuthConnection(MailAuthConnection const&) = delete;
    MailAuthConnection& operator=(MailAuthConnection const&) = delete;

    // 0, or -1 reported. A missing file is created as an empty one, so that the report is then
    // that of the first statement; a file that may only be read fails at its first change.
    [[nodiscard]] int openForWriting();
    [[nodiscard]] int openForReading();

    // 0, or -1 reported and closed.
    [[nodiscard]] int prepare(char const* query);

    // Places count from 1. The bytes are not copied: they must outlive the statement.
    [[nodiscard]] bool bind(int place, char const* text);
    [[nodiscard]] bool bind(int place, char const* text, int length);
    [[nodiscard]] bool bind(int place, long long number);

    // The result of sqlite3_step; neither SQLITE_ROW nor SQLITE_DONE after a refused wait.
    [[nodiscard]] int step();
    // The result of sqlite3_exec, SQLITE_OK or not. The caller frees *error with sqlite3_free.
    [[nodiscard]] int execute(char const* script, char** error);

    // Columns of the current row count from 0; the text lives until the next step, null for NULL.
    char const* text(int column) const;
    long long number(int column) const;
    long long lastInserted() const;

    // The database's own message, or a general one when there is no connection.
    char const* message() const;
    bool isOpen() const { return db != nullptr; }
    bool isAbandoned() const { return abandoned; }

    void finalize();
    // Finalizes and closes. 0, also when it was closed before; -1 after a refused wait.
    int finish();
    // Both report unless the wait was refused, and return -1. failure finishes; stepFailure only
    // finalizes, so that the connection stays usable.
    int failure(char const* fmt, ...) __attribute__((format(printf, 2, 3)));
    int stepFailure(char const* fmt, ...) __attribute__((format(printf, 2, 3)));
    // Hands connection and statement to the caller.
    void release(sqlite3** pdb, sqlite3_stmt** pPStmt);

private:
    template<class Call, class Again>
    int repeated(Call call, Again again);
    void report(char const* fmt, va_list args) const __attribute__((format(printf, 2, 0)));

    sqlite3* db = nullptr;
    sqlite3_stmt* statement = nullptr;
    bool abandoned = false;
};

#endif
