// strlcpy - the usual bounded copy
//
// Copies src into dst, which has room for siz bytes. Cuts what does not fit and writes a NUL,
// unless siz is 0. Returns the length of src: siz or more means that the copy was cut.

#ifndef MAILVEK_LIB_TEXT_STRLCPY_H
#define MAILVEK_LIB_TEXT_STRLCPY_H

#include <cstddef>

// C linkage: C libraries that have the function declare it so.
extern "C" std::size_t strlcpy(char* dst, char const* src, std::size_t siz) noexcept;

#endif
