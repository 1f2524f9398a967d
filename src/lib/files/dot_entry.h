// dot_entry - the two entries of each directory that a walk skips

#ifndef MAILVEK_LIB_FILES_DOT_ENTRY_H
#define MAILVEK_LIB_FILES_DOT_ENTRY_H

#include <cstring>

// Whether name is "." or "..".
inline bool is_dot_entry(char const* name)
{
    return strcmp(name, ".") == 0 || strcmp(name, "..") == 0;
}

#endif
