// liblog - the tool's voice to its operator
//
// messlog2 prints one report on standard error and then on standard output, whatever
// mess_out says. While errno is not zero the report gets a second line with its number and
// text, so a function that wants no such line clears errno before it reports. A status other
// than 0 ends the process with that status.
//
// A newline is added only where the text lacks one. PROGNAME, if set, gives the prefix:
// its base name and ": ". errno is kept as long as both streams can be written. All three
// return 0.

#ifndef MAILVEK_LIB_REPORT_LIBLOG_H
#define MAILVEK_LIB_REPORT_LIBLOG_H

#include <cstdarg>

extern char const* PROGNAME;

int messlog2(int status, int mess_out, char const* fmt, ...) __attribute__((format(printf, 3, 4)));
int vmesslog2(int status, int mess_out, char const* fmt, va_list args)
    __attribute__((format(printf, 3, 0)));

// Prints one finished text, which is no format, and has no line for errno.
int ex_messlog(char const* msg, int status, int mess_out);

#endif
