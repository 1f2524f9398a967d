// connection - a connection to the panel's database, with statements built like a stream
//
//     connection << "SELECT val FROM misc WHERE param='" << Query::value << name << "'";
//     Result result = connection << Query::fetch;
//
// Query::value and Query::name set how the next string, and only that one, is inserted. Query::exec
// or Query::fetch runs the statement; the connection is ready for the next statement afterwards,
// even after a failure. Statements run one after the other, but several results may be alive at
// once: see mysql/result.h.
//
// Failures raise mError, and std::bad_alloc when out of memory. db_connect has already reported a
// failed connection. No message contains the text of a statement.
//
// Use exec only for statements without rows: rows that are not fetched make the next statement
// fail.
//
// No command calls these; they are for callers to come: Connection::test.

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
inline constexpr value_t value; // escape the next string as a value; the caller writes the quotes
inline constexpr name_t name;   // double the backticks of the next string, a name

} // namespace Query

class Connection
{
public:
    // Opens the connection at once if connect_now is set.
    explicit Connection(bool connect_now);

    // Does nothing on an open connection.
    void open();

    // A null string spoils the statement: nothing after it is inserted.
    Connection& operator<<(char const* text);
    Connection& operator<<(int number);    // as "%d" prints it
    Connection& operator<<(double number); // as "%f" prints it
    Connection& operator<<(Query::value_t);
    Connection& operator<<(Query::name_t);

    void operator<<(Query::exec_t);

    // A statement that cannot return rows, such as an UPDATE, is a failure. A SELECT without rows
    // is not.
    [[nodiscard]] Result operator<<(Query::fetch_t);

    // The text escaped for a place between quotes. Needs an open connection, for its character set.
    // Length 0 means up to the NUL, here and below.
    std::string escape(char const* text, std::size_t length) const;

    // The text escaped for a place between backticks. Needs no connection.
    static std::string escape_name(char const* text, std::size_t length);

    // Prints examples of escaping on standard error, for a developer. Needs no server.
    static void test();

private:
    enum InsertMode : int
    {
        insert_value = 0,
        insert_name = 1,
        insert_as_is = 2,
    };

    // The string as insertMode says. Resets the mode.
    std::string treated(char const* text);
    void run();

    OpenMysql handle;
    std::ostringstream query;
    int insertMode = insert_as_is;
};

} // namespace orvek::mysql

#endif
