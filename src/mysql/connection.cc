#include "mysql/connection.h"

#include "mysql/mysql_error.h"

#include <cstring>
#include <iostream>
#include <memory>
#include <new>
#include <utility>

namespace orvek::mysql {

namespace {

std::size_t lengthOf(char const* text, std::size_t length)
{
    return length > 0 ? length : strlen(text);
}

} // namespace

Connection::Connection(bool connect_now)
{
    if (connect_now)
        open();
}

void Connection::open()
{
    if (handle)
        return;
    handle.reset(db_connect());
    if (!handle)
        throw mError("connection failed");
}

std::string Connection::escape(char const* text, std::size_t length) const
{
    length = lengthOf(text, length);
    auto const buffer = std::make_unique_for_overwrite<char[]>(2 * length + 1);
    return {buffer.get(), mysql_real_escape_string(handle.get(), buffer.get(), text, length)};
}

std::string Connection::escape_name(char const* text, std::size_t length)
{
    std::string escaped;
    for (char const* const end = text + lengthOf(text, length); text != end; ++text)
        escaped.append(*text == '`' ? 2 : 1, *text);
    return escaped;
}

std::string Connection::treated(char const* text)
{
    switch (std::exchange(insertMode, insert_as_is)) {
    case insert_value:
        return escape(text, 0);
    case insert_name:
        return escape_name(text, 0);
    default:
        return text;
    }
}

Connection& Connection::operator<<(char const* text)
{
    if (text) {
        query << treated(text);
    } else {
        query.setstate(std::ios_base::badbit);
        insertMode = insert_as_is;
    }
    return *this;
}

Connection& Connection::operator<<(int number)
{
    return *this << std::to_string(number).c_str();
}

Connection& Connection::operator<<(double number)
{
    return *this << std::to_string(number).c_str();
}

Connection& Connection::operator<<(Query::value_t)
{
    insertMode = insert_value;
    return *this;
}

Connection& Connection::operator<<(Query::name_t)
{
    insertMode = insert_name;
    return *this;
}

void Connection::run()
{
    std::string const statement = query.str();
    query.str({});
    query.clear(); // resets the bad bit: a null string spoils only its own statement
    insertMode = insert_as_is;
    if (!handle || mysql_real_query(handle.get(), statement.data(), statement.size()) != 0)
        throw mError(handle.get(), " executing query");
}

void Connection::operator<<(Query::exec_t)
{
    run();
}

Result Connection::operator<<(Query::fetch_t)
{
    run();
    MYSQL_RES* const stored = mysql_store_result(handle.get());
    if (!stored)
        throw mError(handle.get(), " fetching result");
    return Result(stored);
}

#define PRINT_VALUE(expression)                                                                    \
    (std::cerr << __FILE__ << '(' << __LINE__ << ") " << #expression << " = " << (expression)      \
               << std::endl)

void Connection::test()
{
    Connection connection(/*connect_now=*/false);
    connection.handle.reset(mysql_init(nullptr));
    if (!connection.handle)
        throw std::bad_alloc();
    PRINT_VALUE(connection.escape("plain", 0));
    PRINT_VALUE(connection.escape("it's \"quoted\"", 0));
    PRINT_VALUE(connection.escape("back\\slash, 100%", 0));
    PRINT_VALUE(connection.escape("cut here", 3));
    PRINT_VALUE(connection.escape("a\0b", 3));
    PRINT_VALUE(escape_name("plain", 0));
    PRINT_VALUE(escape_name("back`tick``s", 0));
    PRINT_VALUE(escape_name("cut`here", 4));
}

#undef PRINT_VALUE

} // namespace orvek::mysql
