#include "lib/programs/close_descriptors.h"

#include "lib/report/owned.h"

#include <algorithm>
#include <cerrno>
#include <climits>
#include <cstdlib>

#include <dirent.h>
#include <sys/resource.h>
#include <unistd.h>

namespace {

constexpr int first_to_close = STDERR_FILENO + 1;

// One more than the highest descriptor that can be open.
int descriptor_limit()
{
    rlimit limit = {};
    int result = 0;
    do
        result = getrlimit(RLIMIT_NOFILE, &limit);
    while (result == -1 && errno == EINTR);
    return result == -1 ? 20 : static_cast<int>(std::min<rlim_t>(limit.rlim_cur, INT_MAX));
}

bool close_between(int first, int end)
{
    return first >= end ||
           close_range(static_cast<unsigned>(first), static_cast<unsigned>(end - 1), 0) == 0;
}

void close_one(int descriptor)
{
    while (close(descriptor) == -1 && errno == EINTR) {
    }
}

// For a kernel without close_range, or a container whose filter of system calls refuses it.
void close_listed(int end, int except)
{
    OpenDir const dir(opendir("/proc/self/fd"));
    if (!dir)
        return;
    while (dirent const* const entry = readdir(dir.get())) {
        // "." and ".." give 0, which is never closed.
        auto const descriptor = static_cast<int>(strtol(entry->d_name, nullptr, 10));
        if (descriptor >= first_to_close && descriptor < end && descriptor != except &&
            descriptor != dirfd(dir.get()))
            close_one(descriptor);
    }
}

} // namespace

void close_descriptors(int except)
{
    ErrnoKeeper const keeper;
    int const end = descriptor_limit();
    int const kept = std::max(except, first_to_close - 1);
    if (!close_between(first_to_close, std::min(kept, end)) || !close_between(kept + 1, end))
        close_listed(end, kept);
}
