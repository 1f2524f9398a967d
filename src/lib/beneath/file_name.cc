#include "lib/beneath/file_name.h"

#include <cstdlib>

bool is_file_name(std::string_view word)
{
    return !word.empty() && word != "." && word != ".." && word.find('/') == word.npos;
}

std::string unforeseeable_characters()
{
    static constexpr char letters[] =
        "abcdefghijklmnopqrstuvwxyzABCDEFGHIJKLMNOPQRSTUVWXYZ0123456789";
    std::string characters;
    for (int i = 0; i < 6; ++i)
        characters += letters[arc4random_uniform(sizeof letters - 1)];
    return characters;
}
