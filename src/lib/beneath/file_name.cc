#include "lib/beneath/file_name.h"

bool is_file_name(std::string_view word)
{
    return !word.empty() && word != "." && word != ".." && word.find('/') == word.npos;
}
