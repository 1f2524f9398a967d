#include "lib/text/strlcpy.h"

#include <algorithm>
#include <cstring>

std::size_t strlcpy(char* dst, char const* src, std::size_t siz) noexcept
{
    std::size_t const length = strlen(src);
    if (siz > 0) {
        std::size_t const copied = std::min(length, siz - 1);
        memcpy(dst, src, copied);
        dst[copied] = '\0';
    }
    return length;
}
