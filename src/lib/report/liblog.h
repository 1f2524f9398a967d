// liblog - the tool's voice to its operator
//
// messlog2 prints one report on standard error and then on standard output, whatever mess_out
// is. While errno is not 0 the report has a second line with the number and its text; clear
// errno first to report without that line. A status other than 0 ends the process with that
// status: fatal() of failure.h says so to the compiler.
//
// Control bytes in arguments are shown, as visible_arguments() does, so that a name has no line
// of its own in a log. A last "%s" on a line of its own keeps the newlines of its argument.
//
// A newline is added when the text has none at its end. PROGNAME, if set, is the prefix: its
// base name and ": ". errno is kept as long as both streams can be written. All three functions
// return 0.

#ifndef MAILVEK_LIB_REPORT_LIBLOG_H
#define MAILVEK_LIB_REPORT_LIBLOG_H

#include <cstdarg>

extern char const* PROGNAME;

int messlog2(int status, int mess_out, char const* fmt, ...) __attribute__((format(printf, 3, 4)));
int vmesslog2(int status, int mess_out, char const* fmt, va_list args)
    __attribute__((format(printf, 3, 0)));

// Prints a finished text as it is: not a format, without a line for errno.
int ex_messlog(char const* msg, int status, int mess_out);

#endif
