// form_path - paths in buffers of 4096 bytes
//
// Formats a path and says whether it fitted; what did not is cut, and the caller reports it.
// errno is left alone.

#ifndef MAILVEK_LIB_FORM_PATH_H
#define MAILVEK_LIB_FORM_PATH_H

#include <cstddef>

constexpr std::size_t path_size = 4096;

[[nodiscard]] bool form_path(char (&path)[path_size], char const* fmt, ...)
    __attribute__((format(printf, 2, 3)));

#endif
