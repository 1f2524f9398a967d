#include "lib/report/form_path.h"

#include "lib/report/owned.h"

#include <cstdarg>
#include <cstdio>

namespace {

bool fits(int length, std::size_t size)
{
    return length >= 0 && static_cast<std::size_t>(length) < size;
}

} // namespace

bool form_path(char (&path)[path_size], char const* fmt, ...)
{
    ErrnoKeeper const keeper;
    va_list args;
    va_start(args, fmt);
    int const length = vsnprintf(path, path_size, fmt, args);
    va_end(args);
    return fits(length, path_size);
}

bool form_path_in(char* path, std::size_t size, char const* fmt, ...)
{
    ErrnoKeeper const keeper;
    va_list args;
    va_start(args, fmt);
    int const length = vsnprintf(path, size, fmt, args);
    va_end(args);
    return fits(length, size);
}
