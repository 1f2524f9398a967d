// strings_of - the strings of an array, to compare

#ifndef MAILVEK_TESTS_SUPPORT_STRINGS_OF_H
#define MAILVEK_TESTS_SUPPORT_STRINGS_OF_H

#include "lib/text/string.h"

#include <string>
#include <vector>

inline std::vector<std::string> stringsOf(StringArray const& array)
{
    std::vector<std::string> strings;
    for (char* const* string = array.get(); string && *string; ++string)
        strings.emplace_back(*string);
    return strings;
}

#endif
