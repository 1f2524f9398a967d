#include "lib/files/file_name.h"

#include <cstring>

bool is_file_name(char const* word)
{
    return *word != '\0' && strcmp(word, ".") != 0 && strcmp(word, "..") != 0 && !strchr(word, '/');
}
