#include "postfix/maps/record_filters.h"

#include "lib/report/visible.h"

#include <algorithm>
#include <iostream>

namespace orvek::mail::postfix::database {

namespace {

bool isBlank(char byte)
{
    return byte == ' ' || byte == '\t';
}

} // namespace

std::size_t findKeyEnd(std::string const& line)
{
    auto const end = std::find_if(line.begin(), line.end(), isBlank);
    if (end != line.end())
        return static_cast<std::size_t>(end - line.begin());
    std::clog << "invalid key/value '" << visible(line) << "'" << std::endl;
    return std::string::npos;
}

std::string_view valueBehind(std::string_view line, std::size_t keyEnd)
{
    line.remove_prefix(keyEnd);
    while (!line.empty() && isBlank(line.front()))
        line.remove_prefix(1);
    while (!line.empty() && isBlank(line.back()))
        line.remove_suffix(1);
    return line;
}

bool ReplaceElementFilterRef::operator()(std::string& element) const
{
    if (element == *from)
        element = *to;
    return true;
}

bool ReplaceElementsFilterRef::operator()(std::string& element) const
{
    auto const found = replacements->find(element);
    if (found != replacements->end())
        element = found->second;
    return true;
}

} // namespace orvek::mail::postfix::database
