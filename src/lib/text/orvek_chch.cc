#include "lib/text/orvek_chch.h"

#include "lib/report/liblog.h"
#include "lib/report/owned.h"
#include "lib/text/strlcpy.h"

#include <algorithm>
#include <cctype>
#include <cerrno>
#include <cstdlib>
#include <cstring>

namespace {

// A string in a buffer of fixed size. Text that does not fit is dropped.
struct Bounded
{
    char* buffer;
    std::size_t size;
    std::size_t used;

    void append(char const* text, std::size_t length)
    {
        std::size_t const taken = std::min(length, size - 1 - used);
        memcpy(buffer + used, text, taken);
        used += taken;
        buffer[used] = '\0';
    }
};

void replace_all(Bounded& result, char const* src, char const* from, char const* to)
{
    while (char const* const found = strstr(src, from)) {
        result.append(src, static_cast<std::size_t>(found - src));
        result.append(to, strlen(to));
        src = found + strlen(from);
    }
    result.append(src, strlen(src));
}

bool is_space(char c)
{
    return isspace(static_cast<unsigned char>(c)) != 0;
}

} // namespace

char* orvek_chch(char* src, char* dst, char from, char to)
{
    char* const target = dst ? dst : src;
    if (dst)
        memmove(dst, src, strlen(src) + 1);
    for (char* c = target; *c != '\0'; ++c)
        if (*c == from)
            *c = to;
    return target;
}

char* strn_replace(char const* src, char* dst, char const* from, char const* to, std::size_t n)
{
    if (!dst || n == 0)
        return dst;
    if (*from == '\0')
        return dst == src ? dst : strncpy(dst, src, n);
    CString const work(static_cast<char*>(calloc(n, 1)));
    if (!work) {
        messlog2(0, 0, "strn_replace(): %s\n", strerror(errno));
        strlcpy(dst, src, n);
        return dst;
    }
    Bounded result{work.get(), n, 0};
    replace_all(result, src, from, to);
    strlcpy(dst, work.get(), n);
    return dst;
}

char* orvek_trim(char* str)
{
    std::size_t length = strlen(str);
    while (length > 0 && is_space(str[length - 1]))
        --length;
    str[length] = '\0';
    while (is_space(*str))
        ++str;
    return str;
}
