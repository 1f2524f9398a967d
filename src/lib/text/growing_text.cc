#include "lib/text/growing_text.h"

namespace {

constexpr size_t growth = 4096;

} // namespace

bool GrowingText::make_room()
{
    if (room() > 0)
        return true;
    auto* const bigger = static_cast<char*>(realloc(text.get(), capacity + growth + 1));
    if (!bigger)
        return false;
    static_cast<void>(text.release());
    text.reset(bigger);
    capacity += growth;
    return true;
}

void GrowingText::terminate()
{
    if (text)
        *end() = '\0';
}
