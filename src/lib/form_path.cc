#include "lib/form_path.h"

#include "lib/owned.h"

#include <cstdarg>
#include <cstdio>

namespace {

__attribute__((format(printf, 3, 0))) bool vform(char* path, std::size_t size, char const* fmt,
                                                 va_list args)
{
    ErrnoKeeper const keeper;
    int const length = vsnprintf(path, size, fmt, args);
    return length >= 0 && static_cast<std::size_t>(length) < size;
}

} // namespace

bool form_path(char (&path)[path_size], char const* fmt, ...)
{
    va_list args;
    va_start(args, fmt);
    bool const fitted = vform(path, path_size, fmt, args);
    va_end(args);
    return fitted;
}

bool form_path_in(char* path, std::size_t size, char const* fmt, ...)
{
    va_list args;
    va_start(args, fmt);
    bool const fitted = vform(path, size, fmt, args);
    va_end(args);
    return fitted;
}
