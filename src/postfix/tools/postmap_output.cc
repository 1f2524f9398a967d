#include "postfix/tools/postmap_output.h"

#include <algorithm>
#include <string_view>

namespace orvek::mail::postfix {

namespace {

bool isHarmless(std::string_view line, bool strict)
{
    constexpr auto none = std::string_view::npos;
    size_t const colon = line.find(':');
    if (colon == none)
        return true;
    size_t const word = line.find_first_not_of(' ', colon + 1);
    if (word == none || line.find(':', word + 1) == none)
        return true;
    std::string_view const rest = line.substr(word);
    if (rest.starts_with("panic:") || rest.starts_with("fatal:") || rest.starts_with("error:"))
        return false;
    return !strict || rest.starts_with("warning:");
}

} // namespace

bool checkOutput(std::string const& text, bool strict)
{
    for (size_t begin = 0; begin < text.size();) {
        size_t const end = std::min(text.find('\n', begin), text.size());
        if (!isHarmless(std::string_view(text).substr(begin, end - begin), strict))
            return false;
        begin = end + 1;
    }
    return true;
}

} // namespace orvek::mail::postfix
