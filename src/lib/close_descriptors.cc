#include "lib/close_descriptors.h"

#include "lib/owned.h"

#include <cstdlib>

#include <dirent.h>
#include <unistd.h>

namespace {

constexpr int first_to_close = STDERR_FILENO + 1;

// For a kernel, or a container's system call filter, that knows no close_range.
void close_listed(int limit)
{
    OpenDir const dir(opendir("/proc/self/fd"));
    if (!dir)
        return;
    while (dirent const* const entry = readdir(dir.get())) {
        int const descriptor = atoi(entry->d_name); // 0, and so kept, for "." and ".."
        if (descriptor >= first_to_close && descriptor < limit && descriptor != dirfd(dir.get()))
            close(descriptor);
    }
}

} // namespace

void close_descriptors()
{
    ErrnoKeeper const keeper;
    int const limit = getdtablesize();
    if (limit <= first_to_close)
        return;
    if (close_range(first_to_close, static_cast<unsigned>(limit - 1), 0) != 0)
        close_listed(limit);
}
