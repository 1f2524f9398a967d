// form_path - paths in buffers of a fixed size
//
// Both format a path and return whether it fitted. A path that did not fit is cut, and the caller
// reports it. errno is kept. form_path takes the usual buffer of 4096 bytes, form_path_in a buffer
// of any size.
//
// No command calls these; they are for callers to come: form_path_in.

#ifndef MAILVEK_LIB_REPORT_FORM_PATH_H
#define MAILVEK_LIB_REPORT_FORM_PATH_H

#include <cstddef>

constexpr std::size_t path_size = 4096;

[[nodiscard]] bool form_path(char (&path)[path_size], char const* fmt, ...)
    __attribute__((format(printf, 2, 3)));

[[nodiscard]] bool form_path_in(char* path, std::size_t size, char const* fmt, ...)
    __attribute__((format(printf, 3, 4)));

#endif
