// orvek_chch - replacing and trimming within strings
//
// No command calls these; they are for callers to come: orvek_chch, strn_replace.

#ifndef MAILVEK_LIB_TEXT_ORVEK_CHCH_H
#define MAILVEK_LIB_TEXT_ORVEK_CHCH_H

#include <cstddef>

// Copies src to dst and writes to in the place of every from. dst has room for src; a null dst
// means in place. Returns the target.
char* orvek_chch(char* src, char* dst, char from, char to);

// Copies src to dst and writes the text to in the place of every from. dst has room for n bytes
// and may be src; the rest is dropped. Returns dst, null for a null dst. An empty from makes this
// strncpy, which ends no copy of n bytes or more with a NUL. Without memory, which is reported
// through messlog2, src is copied as it is.
char* strn_replace(char const* src, char* dst, char const* from, char const* to, std::size_t n);

// Removes white space at the end, in place, and returns the first character that is no white
// space. Free the pointer that you passed, not the result: both are in the same buffer.
char* orvek_trim(char* str);

#endif
