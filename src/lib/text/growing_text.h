// growing_text - a string from malloc that grows in steps of 4096 bytes
//
// make_room sees to it that a byte more fits at least; it gives false, with errno set and the
// text as it was, when there is no memory. Write up to room() bytes at end(), then say how
// many with added(). There is always room for the NUL, which terminate() writes; a text
// without any make_room does not exist, and get() and release() give null for it. What
// release gives belongs to the caller, who frees it.

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
    size_t capacity = 0; // the byte for the NUL is not counted
};

#endif
