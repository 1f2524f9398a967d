// string - arrays of strings, and letters in lower case
//
// A string array is null-terminated, and owns its strings and itself; free_array frees all of
// it. Failures give null and are reported through messlog2.

#ifndef MAILVEK_LIB_TEXT_STRING_H
#define MAILVEK_LIB_TEXT_STRING_H

#include <cstddef>
#include <memory>

// Appends a copy of string to the array, which may be null, and returns the array at its new
// place. After a failure masp stands as it was and is still the caller's.
[[nodiscard]] char** string_to_mas(char** masp, char const* string);

// Null is allowed.
void free_array(char** masp);

// Splits at any byte of delim. Delimiters before a field are skipped, so that a run of them
// counts as one; a str that is empty or ends in a delimiter gives a last field that is empty.
[[nodiscard]] char** string_split(char const* str, char const* delim);

// In place; returns c. Null gives null, here and below.
char* strtolower(char* c);
// A copy in lower case that the caller frees.
[[nodiscard]] char* strtolower_dynamic(char const* c);

struct FreeArray
{
    void operator()(char** masp) const { free_array(masp); }
};

using StringArray = std::unique_ptr<char*[], FreeArray>;

// An array made string by string. string_to_mas counts the strings there are at each call; this
// knows them, for arrays that may be long.
class StringArrayBuilder
{
public:
    // False after a failure, which has been reported; the array stands as it was.
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
