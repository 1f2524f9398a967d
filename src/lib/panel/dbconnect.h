// dbconnect - connections to the panel's database
//
// The database is the local server's "orv", read as user "admin" over the server's default
// socket. The password is the first line of /etc/orv/.orv.shadow and goes to the client library
// alone.
//
// Each function returns a connection, which the caller closes with mysql_close, or null. msgbuf
// gets the error's text, cut to msgbufsize bytes with its NUL, or an empty text when nothing
// failed. Only db_connect, escaped_text and get_admin_password report. errno stays as the failing
// call left it. A success does not change it, and neither does a refusal by the server.
//
// One thread only: the process has one value for the compatibility of its last connection.
//
// No command calls these; they are for callers to come: db_is_mysql41_compatible,
// get_admin_password, orvek_db_connect_raw, orvek_db_mysql41_compatible_raw.

#ifndef MAILVEK_LIB_PANEL_DBCONNECT_H
#define MAILVEK_LIB_PANEL_DBCONNECT_H

#include "lib/report/owned.h"

#include <mysql.h>

#include <cerrno>
#include <cstddef>
#include <memory>

// The owners keep errno: it belongs to the call that failed before.
struct CloseMysql
{
    void operator()(MYSQL* my) const
    {
        ErrnoKeeper const keeper;
        mysql_close(my);
    }
};

// Restores errno at the end of its life to the value that it had at the beginning: the waits of
// the client library leave errors without meaning there. Does nothing when the library itself has
// failed on the connection.
class MysqlErrnoKeeper
{
public:
    explicit MysqlErrnoKeeper(MYSQL* my) : my(my) {}
    ~MysqlErrnoKeeper();
    MysqlErrnoKeeper(MysqlErrnoKeeper const&) = delete;
    MysqlErrnoKeeper& operator=(MysqlErrnoKeeper const&) = delete;

private:
    MYSQL* const my;
    int const saved = errno;
};

struct FreeMysqlResult
{
    void operator()(MYSQL_RES* result) const
    {
        ErrnoKeeper const keeper;
        mysql_free_result(result);
    }
};

using OpenMysql = std::unique_ptr<MYSQL, CloseMysql>;
using MysqlResult = std::unique_ptr<MYSQL_RES, FreeMysqlResult>;

// Only connect. The plain form closes a handle with a pending error and returns null for it.
[[nodiscard]] MYSQL* orvek_db_connect_raw_ex(char* msgbuf, std::size_t msgbufsize);
[[nodiscard]] MYSQL* orvek_db_connect_raw(char* msgbuf, std::size_t msgbufsize);

// Connect and set up: no checks of foreign keys, and the character set that the panel's parameter
// "mysql41_compatible" asks for. The set-up stops at the first step that fails. The handle is not
// null then, and msgbuf has the step's error. The plain form closes a handle with a pending error
// and returns null for it. A failure without such an error, for example a missing row, leaves the
// handle.
[[nodiscard]] MYSQL* orvek_db_connect_ex(char* msgbuf, std::size_t msgbufsize);
[[nodiscard]] MYSQL* orvek_db_connect(char* msgbuf, std::size_t msgbufsize);

// As orvek_db_connect. Never returns a handle with a pending error.
[[nodiscard]] MYSQL* db_connect_nothrow(char* msgbuf, std::size_t msgbufsize);

// The same. A failure is reported through messlog2 and does not end the process.
[[nodiscard]] MYSQL* db_connect();

// The text as it stands between quotes in a statement, escaped for the connection's character
// set. Null is an empty text; no memory is reported and ends the process with status 1.
[[nodiscard]] CString escaped_text(MYSQL* my, char const* text);

// Whether the connection made last speaks UTF-8. Valid once there has been one.
extern int _mysql41_compatible;
int db_is_mysql41_compatible();
int orvek_db_mysql41_compatible_raw();

// Up to 4096 bytes of the password file, less one line feed at their end. Unlike a connection it
// does not stop at the first line. In a static buffer, which the next call overwrites. A failure
// is reported through messlog2 and ends the process with status 1.
char const* get_admin_password();

#endif
