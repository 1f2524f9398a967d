// sqlite_spy - records the calls of the code under test to SQLite, and makes them fail
//
// Link the test program with --wrap for each call below. SQLite's calls inside itself are not
// recorded. Names are without "sqlite3_". A fault hits the nth call of its name, counted from 1,
// and as many after it as it says:
//
//   bind_text, bind_int64     run with a place that no statement has
//   nanosleep                 fails with EINTR
//   all others                return the fault's result and do nothing; an open gives no handle
//
// The spy knows the open connections, so that a lost one is noticed. A test can close one that was
// abandoned on purpose.

#ifndef MAILVEK_TESTS_SUPPORT_SQLITE_SPY_H
#define MAILVEK_TESTS_SUPPORT_SQLITE_SPY_H

#include <sqlite3.h>

#include <cerrno>
#include <ctime>
#include <map>
#include <set>
#include <string>
#include <vector>

class SqliteSpy
{
public:
    struct Fault
    {
        std::string call;
        int nth;
        int result;
        int times;
    };

    std::vector<std::string> calls;
    std::set<std::string> prepared; // the texts of the statements
    std::vector<long> waits;        // the nanoseconds that nanosleep was asked for
    std::set<sqlite3*> open;
    // Waits that nanosleep would grant take no time.
    bool waits_are_free = false;

    void fault(std::string const& call, int nth, int result = SQLITE_ERROR, int times = 1)
    {
        faults.push_back({call, nth, result, times});
    }

    // Forgets calls, waits and faults.
    void forget()
    {
        calls.clear();
        prepared.clear();
        waits.clear();
        faults.clear();
        counts.clear();
        waits_are_free = false;
    }

    void closeAbandoned()
    {
        Inside const inside(*this);
        for (sqlite3* const db : open) {
            while (sqlite3_stmt* const statement = sqlite3_next_stmt(db, nullptr))
                sqlite3_finalize(statement);
            sqlite3_close(db);
        }
        open.clear();
    }

    // While one of these lives, calls are not recorded.
    class Inside
    {
    public:
        explicit Inside(SqliteSpy& spy) : spy(spy) { ++spy.depth; }
        ~Inside() { --spy.depth; }
        Inside(Inside const&) = delete;
        Inside& operator=(Inside const&) = delete;

    private:
        SqliteSpy& spy;
    };

    // Records the call. Returns the fault that hits it, or null.
    Fault const* seen(std::string const& call)
    {
        if (depth > 0)
            return nullptr;
        calls.push_back(call);
        int const number = ++counts[call];
        for (Fault const& fault : faults)
            if (fault.call == call && number >= fault.nth && number < fault.nth + fault.times)
                return &fault;
        return nullptr;
    }

    bool seesThis() const { return depth == 0; }

private:
    std::vector<Fault> faults;
    std::map<std::string, int> counts;
    int depth = 0;
};

inline SqliteSpy& sqliteSpy()
{
    static SqliteSpy spy;
    return spy;
}

extern "C" {

int __real_sqlite3_open(char const* path, sqlite3** db);
int __real_sqlite3_open_v2(char const* path, sqlite3** db, int flags, char const* vfs);
int __real_sqlite3_close(sqlite3* db);
int __real_sqlite3_prepare_v2(sqlite3* db, char const* sql, int size, sqlite3_stmt** statement,
                              char const** tail);
int __real_sqlite3_bind_text(sqlite3_stmt* statement, int place, char const* text, int size,
                             void (*destructor)(void*));
int __real_sqlite3_bind_int64(sqlite3_stmt* statement, int place, sqlite3_int64 number);
int __real_sqlite3_step(sqlite3_stmt* statement);
int __real_sqlite3_reset(sqlite3_stmt* statement);
int __real_sqlite3_finalize(sqlite3_stmt* statement);
int __real_sqlite3_exec(sqlite3* db, char const* sql, int (*row)(void*, int, char**, char**),
                        void* data, char** error);
int __real_nanosleep(timespec const* wanted, timespec* left);

[[gnu::used]] inline int __wrap_sqlite3_open(char const* path, sqlite3** db)
{
    if (SqliteSpy::Fault const* const fault = sqliteSpy().seen("open")) {
        *db = nullptr;
        return fault->result;
    }
    SqliteSpy::Inside const inside(sqliteSpy());
    int const result = __real_sqlite3_open(path, db);
    if (*db)
        sqliteSpy().open.insert(*db);
    return result;
}

[[gnu::used]] inline int __wrap_sqlite3_open_v2(char const* path, sqlite3** db, int flags,
                                                char const* vfs)
{
    if (SqliteSpy::Fault const* const fault = sqliteSpy().seen("open_v2")) {
        *db = nullptr;
        return fault->result;
    }
    SqliteSpy::Inside const inside(sqliteSpy());
    int const result = __real_sqlite3_open_v2(path, db, flags, vfs);
    if (*db)
        sqliteSpy().open.insert(*db);
    return result;
}

[[gnu::used]] inline int __wrap_sqlite3_close(sqlite3* db)
{
    if (SqliteSpy::Fault const* const fault = sqliteSpy().seen("close"))
        return fault->result;
    SqliteSpy::Inside const inside(sqliteSpy());
    int const result = __real_sqlite3_close(db);
    if (result == SQLITE_OK)
        sqliteSpy().open.erase(db);
    return result;
}

[[gnu::used]] inline int __wrap_sqlite3_prepare_v2(sqlite3* db, char const* sql, int size,
                                                   sqlite3_stmt** statement, char const** tail)
{
    if (SqliteSpy::Fault const* const fault = sqliteSpy().seen("prepare_v2"))
        return fault->result;
    if (sqliteSpy().seesThis())
        sqliteSpy().prepared.insert(sql);
    SqliteSpy::Inside const inside(sqliteSpy());
    return __real_sqlite3_prepare_v2(db, sql, size, statement, tail);
}

[[gnu::used]] inline int __wrap_sqlite3_bind_text(sqlite3_stmt* statement, int place,
                                                  char const* text, int size,
                                                  void (*destructor)(void*))
{
    int const bound = sqliteSpy().seen("bind_text") ? 99 : place;
    return __real_sqlite3_bind_text(statement, bound, text, size, destructor);
}

[[gnu::used]] inline int __wrap_sqlite3_bind_int64(sqlite3_stmt* statement, int place,
                                                   sqlite3_int64 number)
{
    int const bound = sqliteSpy().seen("bind_int64") ? 99 : place;
    return __real_sqlite3_bind_int64(statement, bound, number);
}

[[gnu::used]] inline int __wrap_sqlite3_step(sqlite3_stmt* statement)
{
    if (SqliteSpy::Fault const* const fault = sqliteSpy().seen("step"))
        return fault->result;
    SqliteSpy::Inside const inside(sqliteSpy());
    return __real_sqlite3_step(statement);
}

[[gnu::used]] inline int __wrap_sqlite3_reset(sqlite3_stmt* statement)
{
    sqliteSpy().seen("reset");
    SqliteSpy::Inside const inside(sqliteSpy());
    return __real_sqlite3_reset(statement);
}

[[gnu::used]] inline int __wrap_sqlite3_finalize(sqlite3_stmt* statement)
{
    if (statement)
        sqliteSpy().seen("finalize");
    SqliteSpy::Inside const inside(sqliteSpy());
    return __real_sqlite3_finalize(statement);
}

[[gnu::used]] inline int __wrap_sqlite3_exec(sqlite3* db, char const* sql,
                                             int (*row)(void*, int, char**, char**), void* data,
                                             char** error)
{
    if (SqliteSpy::Fault const* const fault = sqliteSpy().seen("exec"))
        return fault->result;
    SqliteSpy::Inside const inside(sqliteSpy());
    return __real_sqlite3_exec(db, sql, row, data, error);
}

[[gnu::used]] inline int __wrap_nanosleep(timespec const* wanted, timespec* left)
{
    SqliteSpy& spy = sqliteSpy();
    if (!spy.seesThis())
        return __real_nanosleep(wanted, left);
    bool const refused = spy.seen("nanosleep");
    spy.waits.push_back(wanted->tv_nsec);
    if (refused) {
        errno = EINTR;
        return -1;
    }
    bool const granted = wanted->tv_nsec < 1000000000;
    return spy.waits_are_free && granted ? 0 : __real_nanosleep(wanted, left);
}

} // extern "C"

#endif
