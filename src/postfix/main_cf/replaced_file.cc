#include "postfix/main_cf/replaced_file.h"

#include "lib/report/owned.h"

#include <csignal>
#include <ctime>
#include <utility>

#include <fcntl.h>
#include <sys/stat.h>

namespace orvek::mail::postfix {

namespace {

constexpr time_t hot_seconds = 2;

// Takes a read lease, which the kernel grants only while nobody has the file open for writing.
// Whoever opens it for writing then waits until the lease ends with the descriptor. The kernel
// signals the holder, by default with SIGIO, which would end the tool; SIGURG is ignored.
bool holdWritersOff(int fd)
{
    return fcntl(fd, F_SETSIG, SIGURG) == 0 && fcntl(fd, F_SETLEASE, F_RDLCK) == 0;
}

bool isHot(time_t modified)
{
    // Not time(), which may lag behind the clock of file times.
    timespec now = {};
    clock_gettime(CLOCK_REALTIME, &now);
    return modified > now.tv_sec - hot_seconds && modified <= now.tv_sec;
}

bool isEarlier(timespec const& a, timespec const& b)
{
    return a.tv_sec != b.tv_sec ? a.tv_sec < b.tv_sec : a.tv_nsec < b.tv_nsec;
}

} // namespace

ReplacedFile::ReplacedFile(std::string path_) : path(std::move(path_))
{
    ErrnoKeeper const keeper;
    struct stat info = {};
    if (lstat(path.c_str(), &info) != 0)
        return;
    device = info.st_dev;
    inode = info.st_ino;
    modified = info.st_mtim;
}

void ReplacedFile::settle() const
{
    ErrnoKeeper const keeper;
    OpenDescriptor const file(open(path.c_str(), O_RDONLY | O_NOFOLLOW | O_NONBLOCK | O_CLOEXEC));
    struct stat info = {};
    if (file.get() < 0 || !holdWritersOff(file.get()) || fstat(file.get(), &info) != 0)
        return;
    if ((info.st_dev == device && info.st_ino == inode) || !isHot(info.st_mtim.tv_sec))
        return;
    // Keeps the fraction of the second, so that two versions still differ in their times.
    timespec const times[2] = {
        {.tv_sec = 0, .tv_nsec = UTIME_OMIT},
        {.tv_sec = info.st_mtim.tv_sec - hot_seconds, .tv_nsec = info.st_mtim.tv_nsec}};
    if (!isEarlier(times[1], modified))
        futimens(file.get(), times);
}

} // namespace orvek::mail::postfix
