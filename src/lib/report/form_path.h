// form_path - paths in buffers of a fixed size
//
// Formats a path and says whether it fitted; what did not is cut, and the caller reports it.
// errno is left alone. form_path is for the buffers of 4096 bytes in which paths are formed,
// form_path_in for one of a caller's own size.

#ifndef MAILVEK_LIB_REPORT_FORM_PATH_H
#define MAILVEK_LIB_REPORT_FORM_PATH_H

#include <cstddef>

constexpr std::size_t path_size = 4096;

[[nodiscard]] bool form_path(char (&path)[path_size], char const* fmt, ...)
    __attribute__((format(printf, 2, 3)));

[[nodiscard]] bool form_path_in(char* path, std::size_t size, char const* fmt, ...)
    __attribute__((format(printf, 3, 4)));

#endif
