// visible - makes control bytes of names visible
//
// A name may come from a stranger. Printed, it must not look like a line of the tool, and it must
// not control a terminal. A newline is shown as \n, a carriage return as \r, and any other control
// byte as \x and two digits, including those of UTF-8's U+0080 to U+009F. Everything else stays as
// it is: UTF-8, a tab, a backslash.

#ifndef MAILVEK_LIB_REPORT_VISIBLE_H
#define MAILVEK_LIB_REPORT_VISIBLE_H

#include "lib/report/owned.h"

#include <cstdarg>
#include <string>
#include <string_view>

// The text with its control bytes made visible.
std::string visible(std::string_view text);
// The same for a text of several lines, whose newlines stay.
std::string visible_lines(std::string_view text);
// The same for one field of a line with tabs between the fields: tabs are shown as \t.
std::string visible_field(std::string_view text);

// printed is what vsnprintf made of fmt and args; it may be cut. Makes those control bytes visible
// that came from arguments. The newlines of fmt itself stay. So do those of a "%s" that ends fmt on
// a line of its own: it is for a text of several lines, such as a program's output.
//
// Returns null when printed can be used as it is. Without memory it replaces the control bytes in
// printed by "?" and returns null. errno is kept.
[[gnu::format(printf, 2, 0)]] CString visible_arguments(char* printed, char const* fmt,
                                                        va_list args);

#endif
