#include "lib/report/product_log.h"

#include <cstdio>

#include <strings.h>
#include <syslog.h>

LogFuncType orvek_log = _orvek_utility_log;
LogVFuncType orvek_logv = _orvek_utility_logv;
int LogLevel = LOG_INFO;
int LogFacility = LOG_MAIL;
int LogEnabled = 1;

namespace {

constexpr char console_word[] = "console";

__attribute__((format(printf, 2, 0))) void print_line(FILE* stream, char const* fmt, va_list args)
{
    va_list copy;
    va_copy(copy, args);
    vfprintf(stream, fmt, copy);
    va_end(copy);
    fputc('\n', stream);
    fflush(stream);
}

} // namespace

void _orvek_utility_logv(int level, char const* fmt, va_list args)
{
    if (level > LogLevel)
        return;
    print_line(stderr, fmt, args);
    print_line(stdout, fmt, args);
}

void _orvek_utility_log(int level, char const* fmt, ...)
{
    va_list args;
    va_start(args, fmt);
    _orvek_utility_logv(level, fmt, args);
    va_end(args);
}

void orvek_log_init(char const* Location, int Level, int Facility, int Option, char const* ident)
{
    LogFacility = Facility;
    LogEnabled = Level < 1 ? 0 : 1;
    LogLevel = Level < 1 ? 0 : Level;

    if (Location) {
        orvek_log = _orvek_utility_log;
        orvek_logv = _orvek_utility_logv;
        if (strncasecmp(Location, console_word, sizeof console_word - 1) != 0)
            LogEnabled = 0;
        return;
    }
    closelog();
    openlog(ident, Option | LOG_PID, LogFacility);
    orvek_log = syslog;
    orvek_logv = vsyslog;
}
