#include "postfix/maps/change_lock.h"

#include "postfix/maps/map_names.h"
#include "util/retry_on_signal.h"

#include <fcntl.h>
#include <sys/file.h>

namespace orvek::mail::postfix {

namespace {

std::string directoryOf(std::string const& map)
{
    std::string const path = mapPath(map);
    size_t const slash = path.rfind('/');
    return slash == std::string::npos ? "." : path.substr(0, slash + 1);
}

int openLocked(std::string const& path)
{
    ErrnoKeeper const keeper;
    int const fd = open(path.c_str(), O_RDONLY | O_DIRECTORY);
    retryOnSignal([fd] { return flock(fd, LOCK_EX); });
    return fd;
}

} // namespace

ChangeLock::ChangeLock(std::string const& map) : directory(openLocked(directoryOf(map)))
{
}

} // namespace orvek::mail::postfix
