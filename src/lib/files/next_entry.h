// next_entry - the next entry of a directory, except "." and ".."
//
// Stores the entry's name in *name. The name is valid until the stream is read again. Result: 1; 0
// at the end; -1 with errno set, not reported, when the directory cannot be read. errno is kept
// except after a failure.

#ifndef MAILVEK_LIB_FILES_NEXT_ENTRY_H
#define MAILVEK_LIB_FILES_NEXT_ENTRY_H

#include "lib/report/owned.h"

[[nodiscard]] int next_entry(OpenDir const& dir, char const** name);

#endif
