// strlcpy - the usual bounded copy
//
// Copies src into dst, which has room for siz bytes, cuts what does not fit and ends it with a
// NUL unless siz is 0. Result: the length of src, so that siz or more means that it was cut.

#ifndef MAILVEK_LIB_TEXT_STRLCPY_H
#define MAILVEK_LIB_TEXT_STRLCPY_H

#include <cstddef>

// With C linkage, as C libraries that have it declare it, so that both declarations are one.
extern "C" std::size_t strlcpy(char* dst, char const* src, std::size_t siz) noexcept;

#endif
