#include "lib/form_path.h"

#include "lib/owned.h"

#include <cstdarg>
#include <cstdio>

bool form_path(char (&path)[path_size], char const* fmt, ...)
{
    ErrnoKeeper const keeper;
    va_list args;
    va_start(args, fmt);
    int const length = vsnprintf(path, path_size, fmt, args);
    va_end(args);
    return length >= 0 && static_cast<std::size_t>(length) < path_size;
}
