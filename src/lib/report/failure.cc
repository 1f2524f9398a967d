#include "lib/report/failure.h"

#include "lib/report/liblog.h"

#include <cstdarg>

int failure(int result, char const* fmt, ...)
{
    va_list args;
    va_start(args, fmt);
    vmesslog2(0, 0, fmt, args);
    va_end(args);
    return result;
}
