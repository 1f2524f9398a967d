#include "util/uerr.h"

#include "lib/report/visible.h"

// Needed for its initialiser too: it runs before uerr's constructor, so the streams still exist
// when uerr is destroyed.
#include <iostream>

namespace orvek {

UtilityErrorStream uerr;

UtilityErrorStreamBuf::~UtilityErrorStreamBuf()
{
    flush();
}

void UtilityErrorStreamBuf::flush()
{
    std::cerr.flush();
    std::cout.write(pending.data(), static_cast<std::streamsize>(pending.size()));
    std::cout.flush();
    pending.clear();
}

int UtilityErrorStreamBuf::sync()
{
    flush();
    return 0;
}

// The buffer has no put area, so every character comes here.
UtilityErrorStreamBuf::int_type UtilityErrorStreamBuf::overflow(int_type c)
{
    if (!traits_type::eq_int_type(c, traits_type::eof())) {
        char const character = traits_type::to_char_type(c);
        std::cerr.put(character);
        pending += character;
    }
    return c;
}

UtilityErrorStream::UtilityErrorStream() : std::ostream(nullptr)
{
    rdbuf(&buffer);
}

UtilityErrorStream& operator<<(UtilityErrorStream& stream, std::string const& name)
{
    static_cast<std::ostream&>(stream) << visible(name);
    return stream;
}

UtilityErrorStream& operator<<(UtilityErrorStream& stream, OwnLines const& lines)
{
    static_cast<std::ostream&>(stream) << visible_lines(lines.text);
    return stream;
}

} // namespace orvek
