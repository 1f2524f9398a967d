#include "postfix/record_filters.h"

#include <cctype>
#include <iostream>

namespace orvek::mail::postfix::database {

namespace {

constexpr char const* blanks = " \t";

} // namespace

std::size_t findKeyEnd(std::string const& line)
{
    std::size_t const end = line.find_first_of(blanks);
    if (end == std::string::npos)
        std::clog << "invalid key/value '" << line << "'" << std::endl;
    return end;
}

std::string_view valueBehind(std::string_view line, std::size_t keyEnd)
{
    std::size_t const first = line.find_first_not_of(blanks, keyEnd);
    if (first == std::string_view::npos)
        return {};
    return line.substr(first, line.find_last_not_of(blanks) - first + 1);
}

bool isListSeparator(char byte)
{
    return byte == ',' || std::isspace(static_cast<unsigned char>(byte)) != 0;
}

bool ReplaceElementFilterRef::operator()(std::string& element) const
{
    if (element == *from)
        element = *to;
    return true;
}

} // namespace orvek::mail::postfix::database
