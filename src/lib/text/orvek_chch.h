// orvek_chch - replacing and trimming within strings

#ifndef MAILVEK_LIB_TEXT_ORVEK_CHCH_H
#define MAILVEK_LIB_TEXT_ORVEK_CHCH_H

#include <cstddef>

// Copies src to dst, which has room for it, with to in the place of every from; in place when
// dst is null. Returns the target.
char* orvek_chch(char* src, char* dst, char from, char to);

// Copies src to dst, which has room for n bytes and may be src, with the text to in the place
// of every from; what goes beyond n is dropped. Returns dst, and null for a null dst.
// With an empty from the copy is strncpy's, which puts no NUL behind n bytes or more. Without
// memory to work in, which is reported through messlog2, src is copied as it is.
char* strn_replace(char const* src, char* dst, char const* from, char const* to, std::size_t n);

// Removes white space at the end, in place, and returns the first character that is none. It
// lies in the same buffer: free the pointer first given, never the result.
char* orvek_trim(char* str);

#endif
