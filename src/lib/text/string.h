// string - arrays of strings, and letters in lower case
//
// A string array is null-terminated. free_array frees its strings and the array. A failure
// returns null and is reported through messlog2.
//
// No command calls these; they are for callers to come: string_to_mas.

#ifndef MAILVEK_LIB_TEXT_STRING_H
#define MAILVEK_LIB_TEXT_STRING_H

#include <cstddef>
#include <memory>

// Appends a copy of string to the array, which may be null, and returns the array, which may have
// moved. After a failure masp is unchanged and still the caller's.
[[nodiscard]] char** string_to_mas(char** masp, char const* string);

// Null is allowed.
void free_array(char** masp);

// Splits at any byte of delim. A run of delimiters counts as one. The last field is empty when
// str is empty or ends in a delimiter.
[[nodiscard]] char** string_split(char const* str, char const* delim);

// In place. Returns c. Null gives null, here and below.
char* strtolower(char* c);
// A copy in lower case that the caller frees.
[[nodiscard]] char* strtolower_dynamic(char const* c);

struct FreeArray
{
    void operator()(char** masp) const { free_array(masp); }
};

using StringArray = std::unique_ptr<char*[], FreeArray>;

// Makes an array string by string. Use it for arrays that may be long: string_to_mas counts the
// strings at each call.
class StringArrayBuilder
{
public:
    // False after a failure, which has been reported. The array is unchanged then.
    [[nodiscard]] bool append(char const* string);

    // The array; null when nothing was appended.
    [[nodiscard]] StringArray release();

private:
    [[nodiscard]] bool make_room();

    StringArray array;
    std::size_t count = 0;
    std::size_t capacity = 0; // with the final null
};

#endif
