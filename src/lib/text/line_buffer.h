// line_buffer - the line that getdelim and getline read into and let grow
//
// Pass the addresses of both members. The destructor frees the text.

#ifndef MAILVEK_LIB_TEXT_LINE_BUFFER_H
#define MAILVEK_LIB_TEXT_LINE_BUFFER_H

#include <cstddef>
#include <cstdlib>

struct LineBuffer
{
    char* text = nullptr;
    std::size_t capacity = 0;

    LineBuffer() = default;
    ~LineBuffer() { free(text); }
    LineBuffer(LineBuffer const&) = delete;
    LineBuffer& operator=(LineBuffer const&) = delete;
};

#endif
