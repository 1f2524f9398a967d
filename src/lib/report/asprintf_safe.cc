#include "lib/report/asprintf_safe.h"

#include "lib/report/failure.h"

#include <cerrno>
#include <cstdio>
#include <cstring>

char* vasprintf_safe(char const* fmt, va_list ap)
{
    char* text = nullptr;
    if (vasprintf(&text, fmt, ap) < 0)
        fatal("Cannot allocate memory: %s", strerror(errno));
    return text;
}

char* asprintf_safe(char const* fmt, ...)
{
    va_list args;
    va_start(args, fmt);
    char* const text = vasprintf_safe(fmt, args);
    va_end(args);
    return text;
}
