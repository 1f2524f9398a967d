#include "lib/names/plain_names.h"

#include <algorithm>
#include <cstddef>

namespace {

constexpr size_t longest_domain = 255;

bool is_plain_in_domain(char c)
{
    return (c >= 'a' && c <= 'z') || (c >= 'A' && c <= 'Z') || (c >= '0' && c <= '9') || c == '-' ||
           c == '_' || c == '.';
}

bool is_plain_in_local_part(char c)
{
    constexpr std::string_view special = "@,/\"\\|`<>()[]:;";
    constexpr unsigned char last_control = 0x20; // the blank counts as a control byte
    constexpr unsigned char del = 0x7f;
    auto const byte = static_cast<unsigned char>(c);
    return byte > last_control && byte != del && special.find(c) == std::string_view::npos;
}

} // namespace

bool is_plain_domain(std::string_view name)
{
    return !name.empty() && name.size() <= longest_domain && name.front() != '-' &&
           name.front() != '.' && name.back() != '.' && name.find("..") == std::string_view::npos &&
           std::ranges::all_of(name, is_plain_in_domain);
}

bool is_plain_local_part(std::string_view name)
{
    return !name.empty() && name != "." && name != ".." && name.front() != '#' &&
           std::ranges::all_of(name, is_plain_in_local_part);
}

bool is_plain_address(std::string_view address)
{
    auto const at = address.find('@');
    return at != std::string_view::npos && is_plain_local_part(address.substr(0, at)) &&
           is_plain_domain(address.substr(at + 1));
}
