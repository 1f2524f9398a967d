// connection - the panel's database, with statements built like a stream
//
//     connection << "SELECT val FROM misc WHERE param='" << Query::value << name << "'";
//     Result result = connection << Query::fetch;
//
// Query::value and Query::name say how the next string is inserted, and that one only. A
// statement ends with Query::exec or Query::fetch; whatever becomes of it, the connection is
// ready for the next one then. Statements are strictly one after the other, results need not
// be: see mysql/result.h.
//
// Failures raise mError, want of memory std::bad_alloc. A failed connection has been reported
// by db_connect. The text of a statement is in no message.
//
// Exec is for statements that give no rows: rows that nobody fetches stay on the line and make
// the statement after it fail.

#ifndef MAILVEK_MYSQL_CONNECTION_H
#define MAILVEK_MYSQL_CONNECTION_H

#include "lib/panel/dbconnect.h"
#include "mysql/result.h"

#include <cstddef>
#include <sstream>
#include <string>

namespace orvek::mysql {

namespace Query {

struct exec_t
{
};
struct fetch_t
{
};
struct value_t
{
};
struct name_t
{
};

inline constexpr exec_t exec;   // runs the statement
inline constexpr fetch_t fetch; // runs the statement and gives its rows
inline constexpr value_t value; // the next string is a value: escape it; the caller quotes it
inline constexpr name_t name;   // the next string is a name: double its backticks

} // namespace Query

class Connection
{
public:
    // Connects at once, as open does, when connect_now is set.
    explicit Connection(bool connect_now);

    // Does nothing on an open connection.
    void open();

    // A null string spoils the statement: nothing that follows is inserted any more.
    Connection& operator<<(char const* text);
    Connection& operator<<(int number);    // as "%d" prints it
    Connection& operator<<(double number); // as "%f" prints it
    Connection& operator<<(Query::value_t);
    Connection& operator<<(Query::name_t);

    void operator<<(Query::exec_t);

    // A statement that has no rows by its nature is a failure here; one that found none is not.
    [[nodiscard]] Result operator<<(Query::fetch_t);

    // The text for a place between quotes, by the connection's character set: only on an open
    // connection. Length 0 means up to the NUL, here and below.
    std::string escape(char const* text, std::size_t length) const;

    // The text for a place between backticks; needs no connection.
    static std::string escape_name(char const* text, std::size_t length);

    // Prints what escaping makes of some texts on standard error, for a developer to look at.
    // Needs no server.
    static void test();

private:
    enum InsertMode : int
    {
        insert_value = 0,
        insert_name = 1,
        insert_as_is = 2,
    };

    // What insertMode makes of the next string, which uses the mode up.
    std::string treated(char const* text);
    void run();

    OpenMysql handle;
    std::ostringstream query;
    int insertMode = insert_as_is;
};

} // namespace orvek::mysql

#endif
