// visible - control bytes of names, shown
//
// A name may be a stranger's. What is printed of it must not look like a line of the tool's and
// must not steer a terminal. A newline is shown as \n, a carriage return as \r, and any other
// control byte, those of UTF-8's U+0080 to U+009F included, as \x and two digits. Everything
// else stays as it is: UTF-8, a tab, a backslash.

#ifndef MAILVEK_LIB_REPORT_VISIBLE_H
#define MAILVEK_LIB_REPORT_VISIBLE_H

#include "lib/report/owned.h"

#include <cstdarg>
#include <string>
#include <string_view>

// The text with its control bytes shown.
std::string visible(std::string_view text);
// The same of a text of several lines: its newlines stay.
std::string visible_lines(std::string_view text);
// The same of one field of a line whose fields tabs part: its tabs are shown as \t.
std::string visible_field(std::string_view text);

// Shows the control bytes that arguments have brought into printed, which is what vsnprintf made
// of fmt and args and may be cut. The newlines of fmt itself stay. So do those of a "%s" that
// ends fmt on a line of its own: it takes a text of several lines, such as a program's output.
//
// Null means that printed can be used as it stands. Without memory each byte in question is
// replaced there by "?". errno is kept.
[[gnu::format(printf, 2, 0)]] CString visible_arguments(char* printed, char const* fmt,
                                                        va_list args);

#endif
