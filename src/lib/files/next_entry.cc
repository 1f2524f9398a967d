#include "lib/files/next_entry.h"

#include "lib/files/dot_entry.h"

#include <cerrno>

int next_entry(OpenDir const& dir, char const** name)
{
    int const before = errno;
    for (;;) {
        errno = 0; // only errno tells the end of a directory from a failure
        dirent const* const entry = readdir(dir.get());
        if (!entry && errno != 0)
            return -1;
        if (entry && is_dot_entry(entry->d_name))
            continue;
        errno = before;
        if (entry)
            *name = entry->d_name;
        return entry ? 1 : 0;
    }
}
