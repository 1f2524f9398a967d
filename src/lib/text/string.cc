#include "lib/text/string.h"

#include "lib/report/liblog.h"
#include "lib/report/owned.h"

#include <cctype>
#include <cerrno>
#include <cstdlib>
#include <cstring>
#include <utility>

namespace {

std::nullptr_t system_error()
{
    messlog2(0, 0, "System error: %s\n", strerror(errno));
    return nullptr;
}

std::size_t count_strings(char* const* masp)
{
    std::size_t count = 0;
    while (masp && masp[count])
        ++count;
    return count;
}

// Appends the first length bytes of text.
char** append(char** masp, char const* text, std::size_t length)
{
    CString copy(strndup(text, length));
    if (!copy)
        return system_error();
    std::size_t const count = count_strings(masp);
    auto** const longer = static_cast<char**>(realloc(masp, (count + 2) * sizeof *masp));
    if (!longer)
        return system_error();
    longer[count] = copy.release();
    longer[count + 1] = nullptr;
    return longer;
}

} // namespace

char** string_to_mas(char** masp, char const* string)
{
    return append(masp, string, strlen(string));
}

bool StringArrayBuilder::make_room()
{
    if (count + 1 < capacity)
        return true;
    std::size_t const wanted = capacity == 0 ? 8 : capacity * 2;
    auto** const longer = static_cast<char**>(realloc(array.get(), wanted * sizeof(char*)));
    if (!longer)
        return false;
    static_cast<void>(array.release());
    array.reset(longer);
    capacity = wanted;
    return true;
}

bool StringArrayBuilder::append(char const* string)
{
    CString copy(strdup(string));
    if (!copy || !make_room()) {
        static_cast<void>(system_error());
        return false;
    }
    array[count++] = copy.release();
    array[count] = nullptr;
    return true;
}

StringArray StringArrayBuilder::release()
{
    count = 0;
    capacity = 0;
    return std::move(array);
}

void free_array(char** masp)
{
    for (char** string = masp; string && *string; ++string)
        free(*string);
    free(masp);
}

char** string_split(char const* str, char const* delim)
{
    StringArray fields;
    for (;;) {
        str += strspn(str, delim);
        std::size_t const length = strcspn(str, delim);
        char** const longer = append(fields.get(), str, length);
        if (!longer) {
            messlog2(0, 0, "Unable to add string into array");
            return nullptr;
        }
        static_cast<void>(fields.release());
        fields.reset(longer);
        str += length;
        if (*str == '\0')
            return fields.release();
        ++str;
    }
}

char* strtolower(char* c)
{
    for (char* letter = c; letter && *letter; ++letter)
        *letter = static_cast<char>(tolower(static_cast<unsigned char>(*letter)));
    return c;
}

char* strtolower_dynamic(char const* c)
{
    if (!c)
        return nullptr;
    char* const copy = strdup(c);
    return copy ? strtolower(copy) : system_error();
}
