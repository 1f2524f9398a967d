// dbconnect - connections to the panel's database
//
// The database is the local server's "orv", read as user "admin" over the server's default
// socket. The password is the first line of /etc/orv/.orv.shadow and goes to the client library
// alone.
//
// Result: a connection that the caller closes with mysql_close, or null. The error's text lands
// in msgbuf, cut to msgbufsize bytes with its NUL; it is empty when nothing failed. Nothing is
// reported but by db_connect and get_admin_password. errno stays as the failing call left it; a
// success, and a refusal by the server, which no system call knows of, leave it as it was.
//
// One thread: the compatibility of the last connection is one value for the process.

#ifndef MAILVEK_LIB_PANEL_DBCONNECT_H
#define MAILVEK_LIB_PANEL_DBCONNECT_H

#include "lib/report/owned.h"

#include <mysql.h>

#include <cerrno>
#include <cstddef>
#include <memory>

// Keep errno, which belongs to the call that failed before they let go.
struct CloseMysql
{
    void operator()(MYSQL* my) const
    {
        ErrnoKeeper const keeper;
        mysql_close(my);
    }
};

// Gives errno back, at the end of its life, the value that it had at the beginning, unless the
// client library itself has failed on the connection by then: its waits leave errors of no
// meaning there.
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

// Connected, and nothing more. The plain form closes a handle that has a pending error, and
// gives null for it.
[[nodiscard]] MYSQL* orvek_db_connect_raw_ex(char* msgbuf, std::size_t msgbufsize);
[[nodiscard]] MYSQL* orvek_db_connect_raw(char* msgbuf, std::size_t msgbufsize);

// Connected and set up: no checks of foreign keys, and the character set that the panel's
// parameter "mysql41_compatible" asks for. The set-up ends at the first step that fails, with
// the handle as it stands then, not null, and the step's error in msgbuf. The plain form closes
// a handle that has a pending error, and gives null for it; a failure without an error of the
// server's or the client library's, such as a missing row, leaves the handle.
[[nodiscard]] MYSQL* orvek_db_connect_ex(char* msgbuf, std::size_t msgbufsize);
[[nodiscard]] MYSQL* orvek_db_connect(char* msgbuf, std::size_t msgbufsize);

// As orvek_db_connect; never gives a handle that has a pending error.
[[nodiscard]] MYSQL* db_connect_nothrow(char* msgbuf, std::size_t msgbufsize);

// The same, with a failure reported through messlog2, which does not end the process.
[[nodiscard]] MYSQL* db_connect();

// The text as it stands between quotes in a statement, escaped for the connection's character
// set. Null is an empty text; no memory is reported and ends the process with status 1.
[[nodiscard]] CString escaped_text(MYSQL* my, char const* text);

// Whether the connection made last speaks UTF-8. Valid once there has been one.
extern int _mysql41_compatible;
int db_is_mysql41_compatible();
int orvek_db_mysql41_compatible_raw();

// Up to 4096 bytes of the password file, without one line feed at their end; unlike a
// connection it does not stop at the first line. In a static buffer, which the next call
// overwrites. A failure is reported through messlog2 and ends the process with status 1.
char const* get_admin_password();

#endif
