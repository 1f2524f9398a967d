#include "lib/files/op_locks.h"

#include "lib/beneath/made_directory.h"
#include "lib/beneath/opened_file.h"
#include "lib/beneath/place.h"
#include "lib/files/libcrypt.h"
#include "lib/report/liblog.h"
#include "lib/report/owned.h"

#include <cerrno>
#include <cstdio>
#include <cstdlib>
#include <cstring>

#include <fcntl.h>
#include <sys/file.h>
#include <sys/stat.h>
#include <unistd.h>

namespace {

constexpr char lock_directory[] = "/var/lock/files";
constexpr int lock_file_flags = O_RDWR | O_CREAT | O_TRUNC;
constexpr mode_t lock_file_mode = 0644;
constexpr mode_t lock_directory_mode = 0700;

OwnedLock new_record(char const* path, int opt)
{
    OwnedLock record(static_cast<lock_struct_t*>(calloc(1, sizeof(lock_struct_t))));
    if (!record)
        return record;
    record->fd = -1;
    record->path = opt ? mk_flock_path(path) : strdup(path);
    if (!record->path)
        record.reset();
    return record;
}

// Refuses a directory of another user: /var/lock is writable for all, and whoever owns the
// directory controls the locks.
int open_lock_directory()
{
    char const* name = nullptr;
    OpenDescriptor const parent = open_parent(lock_directory, name);
    if (parent.get() < 0)
        return -1;
    OpenDescriptor opened =
        make_directory_beneath(parent.get(), name, mode_only(lock_directory_mode), nullptr);
    struct stat info = {};
    if (opened.get() < 0 || fstat(opened.get(), &info) != 0)
        return -1;
    if (info.st_uid != geteuid()) {
        errno = EPERM;
        return -1;
    }
    bool const is_open = (info.st_mode & 07777) != lock_directory_mode;
    if (is_open && set_rights(opened.get(), mode_only(lock_directory_mode)) != 0)
        return -1;
    return opened.release();
}

// Empties the file if the flags ask for it and it belongs to the caller's user. A stranger's file
// stays as it is.
bool empty_own_file(int lock_file, int flags)
{
    struct stat info = {};
    if (!(flags & O_TRUNC))
        return true;
    if (fstat(lock_file, &info) != 0)
        return false;
    return info.st_size == 0 || info.st_uid != geteuid() || ftruncate(lock_file, 0) == 0;
}

int open_lock_file(int dir, char const* name, int flags)
{
    int const access = flags & ~(O_CREAT | O_TRUNC);
    OpenDescriptor opened((flags & O_CREAT
                               ? open_or_make_beneath(dir, name, access, any_size, lock_file_mode)
                               : open_file_beneath(dir, name, access, any_size))
                              .release());
    return opened.get() >= 0 && empty_own_file(opened.get(), flags) ? opened.release() : -1;
}

// Never returns descriptor 0, which lock_struct_t uses for "held by another process". open would
// give it to a process without standard input. Children inherit the descriptor.
int open_above_zero(char const* path, int flags, int opt)
{
    char const* name = nullptr;
    OpenDescriptor const dir(opt ? open_lock_directory() : open_parent(path, name).release());
    if (opt)
        name = strrchr(path, '/') + 1;
    OpenDescriptor const opened(dir.get() < 0 ? -1 : open_lock_file(dir.get(), name, flags));
    return opened.get() < 0 ? -1 : fcntl(opened.get(), F_DUPFD, 1);
}

} // namespace

char* mk_flock_path(char const* path)
{
    char sum[33];
    char* lock_path = nullptr;
    if (asprintf(&lock_path, "%s/%s", lock_directory, get_md5sum(nullptr, path, sum)) < 0)
        return nullptr;
    return lock_path;
}

lock_struct_t* mk_lock_(char const* path, int flags, int flock_flags, int opt)
{
    OwnedLock lock = new_record(path, opt);
    if (!lock)
        return nullptr;
    OpenDescriptor opened(open_above_zero(lock->path, flags, opt));
    if (opened.get() < 0) {
        messlog2(0, 0, "Unable to open file \"%s\": %s.", lock->path, strerror(errno));
        return lock.release();
    }
    if (flock(opened.get(), flock_flags) == 0)
        lock->fd = opened.release();
    else
        lock->fd = errno == EAGAIN ? 0 : -1;
    return lock.release();
}

lock_struct_t* mk_lock(char const* path, int opt)
{
    return mk_lock_(path, lock_file_flags, LOCK_EX, opt);
}

lock_struct_t* mk_nonblock_lock(char const* path, int opt)
{
    return mk_lock_(path, lock_file_flags, LOCK_EX | LOCK_NB, opt);
}

bool is_locked(lock_struct_t const* lock)
{
    return lock && lock->fd > 0;
}

bool is_already_locked(lock_struct_t const* lock)
{
    return !lock || lock->fd == 0;
}

int rm_lock(lock_struct_t* lock)
{
    if (!lock)
        return -1;
    int result = 0;
    if (is_locked(lock) && close(lock->fd) != 0) {
        messlog2(0, 0, "An error occured during closing '%s' file: %s\n", lock->path,
                 strerror(errno));
        result = -1;
    }
    free(lock->path);
    free(lock);
    return result;
}

int free_lock(lock_struct_t* lock)
{
    return rm_lock(lock);
}
