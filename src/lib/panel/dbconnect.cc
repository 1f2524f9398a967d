#include "lib/panel/dbconnect.h"

#include "lib/report/failure.h"
#include "lib/report/liblog.h"

#include <errmsg.h>

#include <cerrno>
#include <cstdarg>
#include <cstdio>
#include <cstring>

#include <fcntl.h>
#include <unistd.h>

int _mysql41_compatible = 0;

namespace {

constexpr char password_file[] = "/etc/orv/.orv.shadow";

// A connection uses this much of the password's line, with the NUL.
constexpr int line_size = 100;

constexpr size_t report_size = 4097;

void cut_line_feed(char* text)
{
    size_t const length = strlen(text);
    if (length > 0 && text[length - 1] == '\n')
        text[length - 1] = '\0';
}

struct MessageBuffer
{
    char* text;
    size_t size;
};

// Writes the error into the caller's buffer and returns false.
[[nodiscard, gnu::format(printf, 2, 3)]] bool failed(MessageBuffer message, char const* fmt, ...)
{
    va_list args;
    va_start(args, fmt);
    vsnprintf(message.text, message.size, fmt, args);
    va_end(args);
    return false;
}

[[nodiscard]] bool step_failed(MessageBuffer message, char const* step, MYSQL* my)
{
    if (mysql_errno(my) == 0)
        return failed(message, "DB error (%s): unknown error", step);
    return failed(message, "DB error (%s) %u: %s", step, mysql_errno(my), mysql_error(my));
}

bool read_password(char (&password)[line_size], MessageBuffer message)
{
    OpenFile const file(fopen(password_file, "r"));
    if (!file)
        return failed(message, "Unable to open admin password file: %s", strerror(errno));
    if (!fgets(password, line_size, file.get()))
        return failed(message, "Unable to read admin password file: %s", strerror(errno));
    cut_line_feed(password);
    return true;
}

bool open_connection(OpenMysql* my, MessageBuffer message)
{
    char password[line_size];
    if (!read_password(password, message))
        return false;
    int const before = errno;
    my->reset(mysql_init(nullptr));
    if (!*my) {
        errno = ENOMEM;
        return failed(message, "Unable to initialize MySQL connection structure: %s",
                      strerror(ENOMEM));
    }
    errno = before;
    MysqlErrnoKeeper const keeper(my->get());
    if (!mysql_real_connect(my->get(), "localhost", "admin", password, "orv", 0, nullptr, 0))
        return failed(message, "Unable to connect to Orvek Database: %s", mysql_error(my->get()));
    return true;
}

bool run(MYSQL* my, char const* query)
{
    MysqlErrnoKeeper const keeper(my);
    return mysql_real_query(my, query, strlen(query)) == 0;
}

// Whether the server is too old for a connection to choose a character set.
bool predates_character_sets(char const* version)
{
    return strncmp(version, "3.", 2) == 0 || strncmp(version, "4.0.", 4) == 0;
}

// Sets *chooses: whether the server lets a connection choose its character set.
bool query_version(MYSQL* my, bool* chooses, MessageBuffer message)
{
    if (!run(my, "SHOW VARIABLES LIKE 'version'"))
        return step_failed(message, "query version", my);
    MysqlResult const result(mysql_store_result(my));
    if (!result)
        return step_failed(message, "store query result", my);
    char const* const* const row = mysql_fetch_row(result.get());
    if (!row)
        return step_failed(message, "fetch version row", my);
    char const* const version = mysql_num_fields(result.get()) > 1 ? row[1] : nullptr;
    if (!version)
        return step_failed(message, "empty version result", my);
    *chooses = !predates_character_sets(version);
    return true;
}

// Any text but "false" means compatible. An empty text, no row and an unreadable result do not.
bool says_compatible(MYSQL* my)
{
    MysqlResult const result(mysql_store_result(my));
    char const* const* const row = result ? mysql_fetch_row(result.get()) : nullptr;
    char const* const value = row ? row[0] : nullptr;
    return value && *value && strcmp(value, "false") != 0;
}

bool choose_character_set(MYSQL* my, MessageBuffer message)
{
    if (!run(my, "SELECT val FROM misc WHERE param='mysql41_compatible'"))
        return step_failed(message, "mysql41 compatible query", my);
    _mysql41_compatible = says_compatible(my) ? 1 : 0;
    if (!run(my, _mysql41_compatible ? "SET NAMES utf8" : "SET NAMES binary"))
        return step_failed(message, "set names query", my);
    return true;
}

bool set_up(MYSQL* my, MessageBuffer message)
{
    // Deliberate: a server that refuses this is used all the same.
    static_cast<void>(run(my, "set foreign_key_checks=0"));
    bool chooses = false;
    if (!query_version(my, &chooses, message))
        return false;
    if (chooses)
        return choose_character_set(my, message);
    _mysql41_compatible = 0;
    return true;
}

MYSQL* without_pending_error(MYSQL* my)
{
    OpenMysql owned(my);
    return owned && mysql_errno(owned.get()) == 0 ? owned.release() : nullptr;
}

} // namespace

MysqlErrnoKeeper::~MysqlErrnoKeeper()
{
    unsigned int const error = mysql_errno(my);
    if (!IS_MYSQL_ERROR(error) && !IS_MARIADB_ERROR(error))
        errno = saved;
}

MYSQL* orvek_db_connect_raw_ex(char* msgbuf, size_t msgbufsize)
{
    if (msgbufsize > 0)
        *msgbuf = '\0';
    OpenMysql my;
    return open_connection(&my, {msgbuf, msgbufsize}) ? my.release() : nullptr;
}

MYSQL* orvek_db_connect_raw(char* msgbuf, size_t msgbufsize)
{
    return without_pending_error(orvek_db_connect_raw_ex(msgbuf, msgbufsize));
}

MYSQL* orvek_db_connect_ex(char* msgbuf, size_t msgbufsize)
{
    MYSQL* const my = orvek_db_connect_raw_ex(msgbuf, msgbufsize);
    // Deliberate: the connection is returned even if its set-up failed. The text and the pending
    // error tell.
    if (my)
        static_cast<void>(set_up(my, {msgbuf, msgbufsize}));
    return my;
}

MYSQL* orvek_db_connect(char* msgbuf, size_t msgbufsize)
{
    return without_pending_error(orvek_db_connect_ex(msgbuf, msgbufsize));
}

MYSQL* db_connect_nothrow(char* msgbuf, size_t msgbufsize)
{
    return without_pending_error(orvek_db_connect(msgbuf, msgbufsize));
}

MYSQL* db_connect()
{
    char text[report_size];
    MYSQL* const my = db_connect_nothrow(text, sizeof text);
    if (!my)
        messlog2(0, 0, "%s", text);
    return my;
}

CString escaped_text(MYSQL* my, char const* text)
{
    std::size_t const length = text ? strlen(text) : 0;
    CString escaped(static_cast<char*>(malloc(2 * length + 1)));
    if (!escaped)
        fatal("Cannot allocate memory: %s", strerror(errno));
    mysql_real_escape_string(my, escaped.get(), text ? text : "", length);
    return escaped;
}

int db_is_mysql41_compatible()
{
    return _mysql41_compatible;
}

int orvek_db_mysql41_compatible_raw()
{
    return _mysql41_compatible;
}

char const* get_admin_password()
{
    static char password[4096 + 1];
    OpenDescriptor const file(open(password_file, O_RDONLY));
    if (file.get() < 0)
        fatal("Unable to open admin password file");
    ssize_t const length = read(file.get(), password, sizeof password - 1);
    if (length < 0)
        fatal("Unable to read admin password file");
    password[length] = '\0';
    cut_line_feed(password);
    return password;
}
