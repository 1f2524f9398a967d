#include "lib/report/failure.h"

#include <cstdlib>

void fatal(char const* fmt, ...)
{
    va_list args;
    va_start(args, fmt);
    vfatal(fmt, args);
}

void vfatal(char const* fmt, va_list args)
{
    vmesslog2(0, 0, fmt, args);
    exit(1);
}
