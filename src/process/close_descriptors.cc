#include "process/close_descriptors.h"

#include "lib/owned.h"
#include "util/retry_on_signal.h"

#include <algorithm>
#include <charconv>
#include <climits>
#include <cstring>
#include <vector>

#include <dirent.h>
#include <sys/resource.h>
#include <unistd.h>

namespace orvek::process {

namespace {

constexpr unsigned first_to_close = STDERR_FILENO + 1;

// One above the highest descriptor that can be opened.
unsigned descriptorLimit()
{
    rlimit limit = {};
    if (retryOnSignal([&] { return getrlimit(RLIMIT_NOFILE, &limit); }) == -1)
        return 20;
    return static_cast<unsigned>(std::min<rlim_t>(limit.rlim_cur, INT_MAX));
}

bool closeRange(unsigned first, unsigned end)
{
    return first >= end || retryOnSignal([=] { return close_range(first, end - 1, 0); }) == 0;
}

std::vector<unsigned> listedDescriptors()
{
    std::vector<unsigned> listed;
    OpenDir const dir(opendir("/proc/self/fd"));
    if (!dir)
        return listed;
    while (dirent const* const entry = readdir(dir.get())) {
        unsigned number = 0;
        char const* const name = entry->d_name;
        if (std::from_chars(name, name + strlen(name), number).ec == std::errc())
            listed.push_back(number);
    }
    return listed;
}

// For a kernel, or a container's system call filter, that knows no close_range.
void closeListed(unsigned end, unsigned except)
{
    for (unsigned const number : listedDescriptors())
        if (number >= first_to_close && number < end && number != except)
            retryOnSignal([=] { return close(static_cast<int>(number)); });
}

} // namespace

void closeAllDescriptors(int except)
{
    ErrnoKeeper const keeper;
    unsigned const end = descriptorLimit();
    unsigned const kept = except < static_cast<int>(first_to_close) ? first_to_close - 1
                                                                    : static_cast<unsigned>(except);
    if (!closeRange(first_to_close, std::min(kept, end)) || !closeRange(kept + 1, end))
        closeListed(end, kept);
}

} // namespace orvek::process
