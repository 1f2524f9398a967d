// failure - report and give up in one statement
//
// failure() reports through messlog2, which then does not end the process, and returns result.
// fatal() and vfatal() report in the same way and end the process with status 1. errno is kept.

#ifndef MAILVEK_LIB_REPORT_FAILURE_H
#define MAILVEK_LIB_REPORT_FAILURE_H

#include "lib/report/liblog.h"

#include <cstdarg>

template<typename Result>
[[nodiscard, gnu::format(printf, 2, 3)]] Result failure(Result result, char const* fmt, ...)
{
    va_list args;
    va_start(args, fmt);
    vmesslog2(0, 0, fmt, args);
    va_end(args);
    return result;
}

[[noreturn, gnu::format(printf, 1, 2)]] void fatal(char const* fmt, ...);
[[noreturn, gnu::format(printf, 1, 0)]] void vfatal(char const* fmt, va_list args);

#endif
