// mysql_spy - records the calls of the code under test to the panel database's client library,
// makes them fail, and replaces statements by others
//
// Link the test program with --wrap for each call below. The real server gets the replacement
// instead of the statement, so that any reply can be had. A fault hits the nth call of its name,
// counted from 1. Names are without "mysql_":
//
//   init, fetch_row           return null and do nothing
//   real_connect, real_query  do nothing and fail without an error of the library
//   store_result              drops the result and returns null, without an error
//
// The spy knows the open connections and results, so that a lost one is noticed. A recorded init
// leaves a meaningless errno, as the library may: its first init reads files.

#ifndef MAILVEK_TESTS_SUPPORT_MYSQL_SPY_H
#define MAILVEK_TESTS_SUPPORT_MYSQL_SPY_H

#include <mysql.h>

#include <cerrno>
#include <functional>
#include <map>
#include <set>
#include <string>
#include <utility>
#include <vector>

class MysqlSpy
{
public:
    struct Connect
    {
        std::string host, user, password, database;
        unsigned int port;
        std::string socket; // "default" when none was given
        unsigned long flags;
    };

    std::vector<std::string> statements; // as the code under test passed them
    std::vector<Connect> connects;
    std::set<MYSQL*> open;
    std::set<MYSQL_RES*> results;
    // Runs before each statement, with the statement's number, counted from 1.
    std::function<void(int)> before;

    void replace(std::string const& statement, std::string const& other)
    {
        replaced[statement] = other;
    }

    void fault(std::string const& call, int nth) { faults.emplace_back(call, nth); }

    // Forgets everything except the open connections and results.
    void forget()
    {
        statements.clear();
        connects.clear();
        before = nullptr;
        replaced.clear();
        faults.clear();
        counts.clear();
    }

    // While one of these lives, calls are not recorded.
    class Inside
    {
    public:
        explicit Inside(MysqlSpy& spy) : spy(spy) { ++spy.depth; }
        ~Inside() { --spy.depth; }
        Inside(Inside const&) = delete;
        Inside& operator=(Inside const&) = delete;

    private:
        MysqlSpy& spy;
    };

    bool seesThis() const { return depth == 0; }

    bool fails(std::string const& call)
    {
        if (depth > 0)
            return false;
        int const number = ++counts[call];
        for (auto const& fault : faults)
            if (fault == std::make_pair(call, number))
                return true;
        return false;
    }

    std::string run(std::string const& statement)
    {
        if (depth > 0)
            return statement;
        statements.push_back(statement);
        if (before) {
            Inside const unseen(*this);
            before(static_cast<int>(statements.size()));
        }
        auto const other = replaced.find(statement);
        return other == replaced.end() ? statement : other->second;
    }

private:
    std::map<std::string, std::string> replaced;
    std::vector<std::pair<std::string, int>> faults;
    std::map<std::string, int> counts;
    int depth = 0;
};

inline MysqlSpy& mysqlSpy()
{
    static MysqlSpy spy;
    return spy;
}

extern "C" {

MYSQL* __real_mysql_init(MYSQL* my);
MYSQL* __real_mysql_real_connect(MYSQL* my, char const* host, char const* user,
                                 char const* password, char const* database, unsigned int port,
                                 char const* socket, unsigned long flags);
void __real_mysql_close(MYSQL* my);
int __real_mysql_real_query(MYSQL* my, char const* query, unsigned long length);
MYSQL_RES* __real_mysql_store_result(MYSQL* my);
void __real_mysql_free_result(MYSQL_RES* result);
MYSQL_ROW __real_mysql_fetch_row(MYSQL_RES* result);

[[gnu::used]] inline MYSQL* __wrap_mysql_init(MYSQL* my)
{
    if (mysqlSpy().fails("init"))
        return nullptr;
    MYSQL* const made = __real_mysql_init(my);
    mysqlSpy().open.insert(made);
    if (mysqlSpy().seesThis())
        errno = ENOTTY;
    return made;
}

[[gnu::used]] inline MYSQL* __wrap_mysql_real_connect(MYSQL* my, char const* host, char const* user,
                                                      char const* password, char const* database,
                                                      unsigned int port, char const* socket,
                                                      unsigned long flags)
{
    if (mysqlSpy().seesThis())
        mysqlSpy().connects.push_back(
            {host, user, password, database, port, socket ? socket : "default", flags});
    if (mysqlSpy().fails("real_connect"))
        return nullptr;
    return __real_mysql_real_connect(my, host, user, password, database, port, socket, flags);
}

[[gnu::used]] inline void __wrap_mysql_close(MYSQL* my)
{
    mysqlSpy().open.erase(my);
    __real_mysql_close(my);
}

[[gnu::used]] inline int __wrap_mysql_real_query(MYSQL* my, char const* query, unsigned long length)
{
    std::string const statement = mysqlSpy().run(std::string(query, length));
    if (mysqlSpy().fails("real_query"))
        return 1;
    return __real_mysql_real_query(my, statement.data(), statement.size());
}

[[gnu::used]] inline MYSQL_RES* __wrap_mysql_store_result(MYSQL* my)
{
    MYSQL_RES* const result = __real_mysql_store_result(my);
    if (mysqlSpy().fails("store_result")) {
        __real_mysql_free_result(result);
        return nullptr;
    }
    if (result)
        mysqlSpy().results.insert(result);
    return result;
}

[[gnu::used]] inline void __wrap_mysql_free_result(MYSQL_RES* result)
{
    mysqlSpy().results.erase(result);
    __real_mysql_free_result(result);
}

[[gnu::used]] inline MYSQL_ROW __wrap_mysql_fetch_row(MYSQL_RES* result)
{
    return mysqlSpy().fails("fetch_row") ? nullptr : __real_mysql_fetch_row(result);
}

} // extern "C"

#endif
