// sh_quote - protects a text that Postfix will hand to a shell
//
// sh_quote puts a backslash before every byte that means something to a shell, and single quotes
// around a newline. Bytes from 128 on stay, because texts are UTF-8. An empty text stays empty.
//
// check_shell_arg raises std::runtime_error for a text with an unsafe byte.
//
// No command calls these; they are for callers to come: check_shell_arg.

#ifndef MAILVEK_UTIL_SH_QUOTE_H
#define MAILVEK_UTIL_SH_QUOTE_H

#include <string>

namespace orvek {

std::string sh_quote(std::string const& text);
void check_shell_arg(std::string const& text);

} // namespace orvek

#endif
