#include "lib/report/product_log.h"

#include "lib/report/owned.h"
#include "lib/report/visible.h"

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

// A longer text gets memory of its own. Without memory it is cut to this size.
constexpr std::size_t fixed_size = 4096;

// Formats into the buffer. Returns memory of its own where the buffer is too small, else null.
__attribute__((format(printf, 2, 0))) CString format(char (&buffer)[fixed_size], char const* fmt,
                                                     va_list args)
{
    va_list copy;
    va_copy(copy, args);
    int const length = vsnprintf(buffer, fixed_size, fmt, copy);
    va_end(copy);
    if (length < 0)
        *buffer = '\0';
    if (length < static_cast<int>(fixed_size))
        return nullptr;
    auto const size = static_cast<std::size_t>(length) + 1;
    CString whole(static_cast<char*>(malloc(size)));
    if (!whole)
        return nullptr;
    va_copy(copy, args);
    vsnprintf(whole.get(), size, fmt, copy);
    va_end(copy);
    return whole;
}

void print_line(FILE* stream, char const* text)
{
    fputs(text, stream);
    fputc('\n', stream);
    fflush(stream);
}

} // namespace

void _orvek_utility_logv(int level, char const* fmt, va_list args)
{
    if (level > LogLevel)
        return;
    char buffer[fixed_size];
    CString const whole = format(buffer, fmt, args);
    char* const text = whole ? whole.get() : buffer;
    CString const shown = visible_arguments(text, fmt, args);
    print_line(stderr, shown ? shown.get() : text);
    print_line(stdout, shown ? shown.get() : text);
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
