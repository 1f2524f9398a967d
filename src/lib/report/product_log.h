// product_log - the switchable logger of the function library
//
// orvek_log and orvek_logv have the signatures of syslog and vsyslog. At first they are the
// console logger. It prints a report on standard error and again on standard output, without a
// prefix, and always adds a newline. It drops a report whose priority number is above LogLevel.
// Control bytes in arguments are shown, as messlog2 does. orvek_log_init switches to syslog or
// back.
//
// Unlike messlog2 the logger has no line for errno. It cannot fail.
//
// No command calls these; they are for callers to come: orvek_log_init.

#ifndef MAILVEK_LIB_REPORT_PRODUCT_LOG_H
#define MAILVEK_LIB_REPORT_PRODUCT_LOG_H

#include <cstdarg>

using LogFuncType = void (*)(int level, char const* fmt, ...);
using LogVFuncType = void (*)(int level, char const* fmt, va_list args);

extern LogFuncType orvek_log __attribute__((format(printf, 2, 3)));
extern LogVFuncType orvek_logv __attribute__((format(printf, 2, 0)));

// The highest priority number that the console logger prints, 6 (informational) at first.
extern int LogLevel;
// The syslog facility, LOG_MAIL at first.
extern int LogFacility;
// 1 at first. The console logger does not look at it.
extern int LogEnabled;

// The console logger.
void _orvek_utility_log(int level, char const* fmt, ...) __attribute__((format(printf, 2, 3)));
void _orvek_utility_logv(int level, char const* fmt, va_list args)
    __attribute__((format(printf, 2, 0)));

// Selects the logger: the console for a non-null Location, syslog for a null one. Level below
// 1 switches logging off; so does a Location that does not begin with "console" (in any
// case). ident must live as long as syslog is used.
void orvek_log_init(char const* Location, int Level, int Facility, int Option, char const* ident);

#endif
