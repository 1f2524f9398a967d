#include "lib/files/semaphores.h"

#include "lib/beneath/opened_file.h"
#include "lib/beneath/place.h"
#include "lib/conf/autoprepend.h"
#include "lib/files/libdir.h"
#include "lib/report/failure.h"
#include "lib/report/form_path.h"
#include "lib/report/liblog.h"
#include "lib/report/owned.h"

#include <cerrno>
#include <cstdio>
#include <cstring>

#include <fcntl.h>
#include <unistd.h>

namespace {

int semaphore_file = -1;

int open_file(char const* path)
{
    char const* name = nullptr;
    OpenDescriptor const parent = open_parent(path, name);
    if (parent.get() < 0)
        return -1;
    return open_or_make_beneath(parent.get(), name, O_WRONLY, any_size, 0600).release();
}

int open_with_directory(char const* path)
{
    int const before = errno;
    int const opened = open_file(path);
    if (opened >= 0 || errno != ENOENT)
        return opened;
    CString const directory(getBaseDir(path));
    if (!directory || createNestedDirectory(directory.get()) == 0)
        return -1;
    errno = before;
    return open_file(path);
}

bool set_lock(int command, short type, long semnum)
{
    struct flock record = {};
    record.l_type = type;
    record.l_whence = SEEK_SET;
    record.l_start = semnum;
    record.l_len = 1;
    int result = 0;
    do
        result = fcntl(semaphore_file, command, &record);
    while (result != 0 && errno == EINTR);
    return result == 0;
}

[[noreturn]] void refuse_to_lock(long semnum)
{
    fatal("sem_lock() failed for semnum %ld: %s", semnum, strerror(errno));
}

void check_for_lock(long semnum)
{
    if (semnum < 0)
        fatal("sem_lock() failed for semnum %ld: semnum must not be negative", semnum);
}

} // namespace

void init_sem()
{
    if (semaphore_file >= 0)
        return;
    char path[path_size];
    if (form_path(path, "%s/var/utilities.sem", orvConfGetDefaultByIndex(_PRODUCT_ROOT_D_INDEX)))
        semaphore_file = open_with_directory(path);
    else
        errno = ENAMETOOLONG;
    if (semaphore_file < 0)
        fatal("failed to open semaphore file %s: %s", path, strerror(errno));
}

void shutdown_sem()
{
    int const opened = semaphore_file;
    semaphore_file = -1;
    if (close(opened) != 0)
        messlog2(0, 0, "shutdown_sem(): failed to close semaphore file: %s", strerror(errno));
}

int sem_lock(long semnum)
{
    check_for_lock(semnum);
    if (!set_lock(F_SETLKW, F_WRLCK, semnum))
        refuse_to_lock(semnum);
    return 0;
}

int sem_lock_nonblock(long semnum)
{
    check_for_lock(semnum);
    if (set_lock(F_SETLK, F_WRLCK, semnum))
        return 0;
    if (errno != EAGAIN && errno != EACCES)
        refuse_to_lock(semnum);
    return -1;
}

int sem_unlock(long semnum)
{
    if (semnum < 0)
        fatal("sem_unlock() failed for semnum %ld: semnum must not be negative", semnum);
    if (!set_lock(F_SETLK, F_UNLCK, semnum))
        fatal("sem_unlock() failed for semnum %ld: %s", semnum, strerror(errno));
    return 0;
}
