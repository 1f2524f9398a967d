#include "util/sh_quote.h"

#include "lib/text/libsafe.h"

#include <stdexcept>

namespace orvek {

namespace {

// The table covers ASCII only; '-' for every byte above.
char escapeClass(char byte)
{
    auto const index = static_cast<unsigned char>(byte);
    return index < 128 ? shell_escape_chars[index] : '-';
}

} // namespace

std::string sh_quote(std::string const& text)
{
    std::string quoted;
    for (char const byte : text) {
        switch (escapeClass(byte)) {
        case '*':
            quoted += '\\';
            quoted += byte;
            break;
        case 'n':
            quoted += '\'';
            quoted += byte;
            quoted += '\'';
            break;
        default:
            quoted += byte;
        }
    }
    return quoted;
}

void check_shell_arg(std::string const& text)
{
    if (check_shell_arg_nothrow(text.c_str()) == 0)
        throw std::runtime_error("Internal error: bad escape_chars value");
}

} // namespace orvek
