#include "mysql/result.h"

#include "mysql/mysql_error.h"

namespace orvek::mysql {

namespace {

// Copies by length, since a text may hold NUL bytes. A length of 0 means up to the first NUL.
std::string columnText(char const* value, unsigned long length)
{
    if (!value)
        return {};
    return length > 0 ? std::string(value, length) : std::string(value);
}

} // namespace

Field const& Result::row_t::operator[](std::string_view name) const
{
    auto const found = find(name);
    if (found == end())
        throw mError("No field named " + std::string(name) + " in result set");
    return found->second;
}

Result::Result(MYSQL_RES* stored) : result(stored), fields(mysql_fetch_fields(stored))
{
}

bool Result::fetch(row_t* row)
{
    char const* const* const values = mysql_fetch_row(result.get());
    unsigned long const* const lengths = mysql_fetch_lengths(result.get());
    if (!values)
        return false;
    row->clear();
    unsigned int const columns = mysql_num_fields(result.get());
    for (unsigned int i = 0; i < columns; ++i) {
        std::string const name(fields[i].name, fields[i].name_length);
        if (!row->try_emplace(name, columnText(values[i], lengths[i])).second)
            throw mError("duplicated field " + name + " in query");
    }
    return true;
}

} // namespace orvek::mysql
