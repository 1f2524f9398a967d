#include "mail/lib/accounts/mail_auth_connection.h"

#include "lib/report/owned.h"
#include "lib/report/product_log.h"
#include "mail/lib/accounts/account_wait.h"
#include "mail/lib/accounts/mail_auth_style.h"
#include "mail/lib/accounts/shared_accounts.h"

#include <cstring>
#include <ctime>
#include <utility>

#include <syslog.h>

namespace {

constexpr int write_timeout = 50; // milliseconds
constexpr int settle_timeout = 1000;

// Removing a domain with a million users takes less than half of these steps.
constexpr int steps_in_batch = 10'000;
constexpr long most_batches = 10'000;
// A trigger of a stranger's can make each step a thousand times dearer than those.
constexpr std::time_t most_seconds = 60;

constexpr int longest_value = 1 << 20; // bytes
// No result of SQLite is negative.
constexpr int failed_wait = -1;

// Of the processor, whatever the machine does besides.
std::time_t seconds_spent()
{
    timespec spent = {};
    clock_gettime(CLOCK_PROCESS_CPUTIME_ID, &spent);
    return spent.tv_sec;
}

bool is_busy(int result)
{
    return result == SQLITE_BUSY;
}

bool is_busy_or_locked(int result)
{
    return result == SQLITE_BUSY || result == SQLITE_LOCKED;
}

} // namespace

MailAuthConnection::MailAuthConnection(sqlite3* db, sqlite3_stmt* statement)
    : db(db), statement(statement)
{
    files.emplace(sqlite3_db_filename(db, "main"));
    setUp();
}

MailAuthConnection::~MailAuthConnection()
{
    finalize();
    if (db && !shared)
        sqlite3_close(db);
}

template<class Call, class Again>
int MailAuthConnection::repeated(Call call, Again again)
{
    AccountWait wait;
    int result = SQLITE_OK;
    do {
        result = call();
        if (!wait.pause()) {
            db = nullptr;
            statement = nullptr;
            abandoned = true;
            return failed_wait;
        }
    } while (again(result) && wait.goesOn());
    // SQLite itself has waited for a lock for ten seconds.
    if (result == SQLITE_PROTOCOL)
        static_cast<void>(wait.goesOn());
    return result;
}

// A call that is not tried when the time for waiting is over.
template<class Call, class Again>
int MailAuthConnection::attempted(Call call, Again again)
{
    return AccountWait::isOver() ? SQLITE_BUSY : repeated(call, again);
}

bool MailAuthConnection::borrow(SharedAccounts* lender, int flags)
{
    return lender ? lender->lend(*this, flags) : open(flags);
}

bool MailAuthConnection::open(int flags)
{
    files.emplace(mailAuthDB);
    if (sqlite3_open_v2(files->path(), &db, flags | SQLITE_OPEN_NOFOLLOW, nullptr) != SQLITE_OK)
        return false;
    setUp();
    return true;
}

void MailAuthConnection::setUp()
{
    sqlite3_db_config(db, SQLITE_DBCONFIG_NO_CKPT_ON_CLOSE, 1, nullptr);
    sqlite3_db_config(db, SQLITE_DBCONFIG_DEFENSIVE, 1, nullptr);
    sqlite3_db_config(db, SQLITE_DBCONFIG_TRUSTED_SCHEMA, 0, nullptr);
    sqlite3_db_config(db, SQLITE_DBCONFIG_ENABLE_VIEW, 0, nullptr);
    sqlite3_limit(db, SQLITE_LIMIT_LENGTH, longest_value);
    sqlite3_limit(db, SQLITE_LIMIT_ATTACHED, 0);
    startCounting();
    sqlite3_progress_handler(db, steps_in_batch, countSteps, this);
}

void MailAuthConnection::startCounting()
{
    batches = 0;
    secondsBefore = seconds_spent();
}

// SQLite interrupts the statement when this is not 0.
int MailAuthConnection::countSteps(void* connection)
{
    auto* const counting = static_cast<MailAuthConnection*>(connection);
    return ++counting->batches > most_batches ||
           seconds_spent() - counting->secondsBefore > most_seconds;
}

int MailAuthConnection::openForWriting()
{
    if (!borrow(SharedAccounts::current(), SQLITE_OPEN_READWRITE | SQLITE_OPEN_CREATE))
        return failure("Unable to open database %s: %s", mailAuthDB, message());
    sqlite3_busy_timeout(db, write_timeout);
    if (!shared || shared->begin())
        return 0;
    db = nullptr;
    abandoned = true;
    return -1;
}

int MailAuthConnection::openForReading()
{
    if (!borrow(SharedAccounts::current(), SQLITE_OPEN_READONLY))
        return failure("Unable to open database(readonly) %s: %s", mailAuthDB, message());
    return 0;
}

int MailAuthConnection::openAloneForReading()
{
    if (!borrow(nullptr, SQLITE_OPEN_READONLY))
        return failure("Unable to open database(readonly) %s: %s", mailAuthDB, message());
    return 0;
}

int MailAuthConnection::prepare(char const* query)
{
    if (shared && (statement = shared->find(query)))
        return 0;
    int const result =
        attempted([&] { return sqlite3_prepare_v2(db, query, -1, &statement, nullptr); }, is_busy);
    if (result != SQLITE_OK)
        return failure("Unable to prepare SQL statement for query '%s': %s", query, message());
    if (shared)
        shared->keep(query, statement);
    return 0;
}

bool MailAuthConnection::bind(int place, char const* text)
{
    return bind(place, text, -1);
}

bool MailAuthConnection::bind(int place, char const* text, int length)
{
    return sqlite3_bind_text(statement, place, text, length, SQLITE_STATIC) == SQLITE_OK;
}

bool MailAuthConnection::bind(int place, long long number)
{
    return sqlite3_bind_int64(statement, place, number) == SQLITE_OK;
}

int MailAuthConnection::step()
{
    bool stepped = false;
    auto const next = [&] {
        if (std::exchange(stepped, true))
            sqlite3_reset(statement);
        return sqlite3_step(statement);
    };
    return attempted(next, is_busy_or_locked);
}

int MailAuthConnection::execute(char const* script, char** error)
{
    *error = nullptr;
    auto const run = [&] {
        sqlite3_free(std::exchange(*error, nullptr));
        return sqlite3_exec(db, script, nullptr, nullptr, error);
    };
    return attempted(run, is_busy_or_locked);
}

char const* MailAuthConnection::text(int column) const
{
    return reinterpret_cast<char const*>(sqlite3_column_text(statement, column));
}

long long MailAuthConnection::number(int column) const
{
    return sqlite3_column_int64(statement, column);
}

long long MailAuthConnection::lastInserted() const
{
    return sqlite3_last_insert_rowid(db);
}

char const* MailAuthConnection::message() const
{
    if (!db)
        return "general DB errror"; // Deliberate: the misspelt text stands.
    return AccountWait::isOver() ? sqlite3_errstr(SQLITE_BUSY) : sqlite3_errmsg(db);
}

void MailAuthConnection::finalize()
{
    sqlite3_stmt* const used = std::exchange(statement, nullptr);
    if (!shared) {
        sqlite3_finalize(used);
    } else if (used) {
        sqlite3_reset(used);
        sqlite3_clear_bindings(used);
    }
}

// Whether the database is in WAL mode now.
bool MailAuthConnection::setMode()
{
    bool set = false;
    auto const look = [](void* found, int, char** columns, char**) {
        *static_cast<bool*>(found) = columns[0] && std::strcmp(columns[0], "wal") == 0;
        return 0;
    };
    sqlite3_exec(db, "PRAGMA journal_mode=WAL", look, &set, nullptr);
    return set;
}

// Nothing is lost where this fails.
void MailAuthConnection::settle()
{
    if (sqlite3_total_changes(db) == 0 || sqlite3_get_autocommit(db) == 0)
        return;
    ErrnoKeeper const keeper;
    sqlite3_busy_timeout(db, settle_timeout);
    // In the old mode a reader must be able to roll back what a killed writer left.
    if (setMode())
        files->leaveWritingToRoot();
    sqlite3_wal_checkpoint_v2(db, nullptr, SQLITE_CHECKPOINT_TRUNCATE, nullptr, nullptr);
}

int MailAuthConnection::finish()
{
    if (db) {
        finalize();
        if (!shared) {
            settle();
            repeated([&] { return sqlite3_close(db); }, is_busy);
        }
        db = nullptr;
    }
    return abandoned ? -1 : 0;
}

void MailAuthConnection::report(char const* fmt, va_list args) const
{
    if (!abandoned)
        orvek_logv(LOG_ERR, fmt, args);
}

int MailAuthConnection::failure(char const* fmt, ...)
{
    ErrnoKeeper const keeper;
    va_list args;
    va_start(args, fmt);
    report(fmt, args);
    va_end(args);
    finish();
    return -1;
}

int MailAuthConnection::stepFailure(char const* fmt, ...)
{
    ErrnoKeeper const keeper;
    va_list args;
    va_start(args, fmt);
    report(fmt, args);
    va_end(args);
    finalize();
    return -1;
}

void MailAuthConnection::release(sqlite3** pdb, sqlite3_stmt** pPStmt)
{
    if (db)
        sqlite3_progress_handler(db, 0, nullptr, nullptr);
    *pdb = std::exchange(db, nullptr);
    *pPStmt = std::exchange(statement, nullptr);
}
