// growing_text - a string from malloc that grows in steps of 4096 bytes
//
// make_room() makes room for at least one more byte. Without memory it returns false with errno
// set and keeps the text. Write up to room() bytes at end(), then tell their number to added().
// terminate() writes the NUL, which always has room. get() and release() are null before the
// first make_room(). The caller frees what release() returns.

#ifndef MAILVEK_LIB_TEXT_GROWING_TEXT_H
#define MAILVEK_LIB_TEXT_GROWING_TEXT_H

#include "lib/report/owned.h"

#include <cstddef>

class GrowingText
{
public:
    [[nodiscard]] bool make_room();
    char* end() { return text.get() + length; }
    size_t room() const { return capacity - length; }
    void added(size_t count) { length += count; }
    void terminate();

    char* get() { return text.get(); }
    [[nodiscard]] char* release() { return text.release(); }

private:
    CString text;
    size_t length = 0;
    size_t capacity = 0; // does not count the byte for the NUL
};

#endif
