// asprintf_safe - formatted allocation that cannot fail
//
// Both return a string that the caller frees, never null. A failure is reported through messlog2
// and ends the process with status 1.

#ifndef MAILVEK_LIB_REPORT_ASPRINTF_SAFE_H
#define MAILVEK_LIB_REPORT_ASPRINTF_SAFE_H

#include <cstdarg>

[[nodiscard]] char* asprintf_safe(char const* fmt, ...) __attribute__((format(printf, 1, 2)));
[[nodiscard]] char* vasprintf_safe(char const* fmt, va_list ap)
    __attribute__((format(printf, 1, 0)));

#endif
