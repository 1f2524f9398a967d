#include "postfix/maps/record_text.h"

#include "lib/report/visible.h"
#include "util/errors.h"

#include <algorithm>
#include <string>

namespace orvek::mail::postfix {

namespace {

bool isControl(char byte)
{
    return static_cast<unsigned char>(byte) < ' ' || byte == '\x7f';
}

// postmap ends a key at the first blank outside quotes, and a backslash hides the next byte.
bool reachesIntoTheValue(std::string_view key)
{
    bool quoted = false;
    bool hidden = false;
    for (char const byte : key) {
        if (byte == '"' && !hidden)
            quoted = !quoted;
        hidden = byte == '\\' && !hidden;
    }
    return quoted || hidden;
}

// The report of this error keeps newlines, so the text must not bring any.
[[noreturn]] void refuse(char const* what, std::string_view text, char const* why)
{
    throw PostfixDatabaseError(std::string("the ")
                                   .append(what)
                                   .append(" '")
                                   .append(visible(text))
                                   .append("' of a map must not ")
                                   .append(why));
}

} // namespace

void requireKey(std::string_view key)
{
    if (key.empty())
        refuse("key", key, "be empty");
    if (key.front() == '#')
        refuse("key", key, "begin with '#'");
    if (std::ranges::any_of(key, [](char byte) { return byte == ' ' || isControl(byte); }))
        refuse("key", key, "hold a blank or a control character");
    if (reachesIntoTheValue(key))
        refuse("key", key, "leave a quote open or end in a backslash");
}

void requireValue(std::string_view value)
{
    if (value.find('\n') != std::string_view::npos)
        refuse("value", value, "hold a newline");
}

} // namespace orvek::mail::postfix
