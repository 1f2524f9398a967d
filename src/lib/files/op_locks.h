// op_locks - locks between processes, by flock
//
// mk_lock waits for the lock, mk_nonblock_lock gives up at once. With opt 0 the lock file is the
// path itself, which is created, or emptied if it belongs to the caller's user. Otherwise it is
// /var/lock/files/<md5 of the path>, so that locking a configuration file never opens it. That
// directory is made with mode 0700 when it is missing. These are failures: another user's directory
// (EPERM) or a link in its place (ELOOP), and a lock file that is a link, not regular, or has
// further names.
//
// Result: a record for rm_lock. Its fd is above 0 for a lock that is held, 0 when another process
// holds it, below 0 after a failure. Its path is the lock file. Only a lock file that cannot be
// opened is reported, through messlog2, and errno is then that of the failed call. Null without
// memory.
//
// The lock file stays on disk. A child inherits the lock unless it closes the descriptor.
//
// No command calls these; they are for callers to come: is_already_locked.

#ifndef MAILVEK_LIB_FILES_OP_LOCKS_H
#define MAILVEK_LIB_FILES_OP_LOCKS_H

#include <memory>

struct lock_struct_t
{
    int fd;
    char* path; // owned
};

[[nodiscard]] lock_struct_t* mk_lock(char const* path, int opt);
[[nodiscard]] lock_struct_t* mk_nonblock_lock(char const* path, int opt);

// The general form of both: flags are those of open, flock_flags those of flock.
[[nodiscard]] lock_struct_t* mk_lock_(char const* path, int flags, int flock_flags, int opt);

// The lock file for path in /var/lock/files. The caller frees it. Null without memory.
[[nodiscard]] char* mk_flock_path(char const* path);

// Whether this process holds the lock.
bool is_locked(lock_struct_t const* lock);
// Whether another process holds it, or there is no record.
bool is_already_locked(lock_struct_t const* lock);

// Releases the lock if it is held, and frees the record. 0, or -1 for null and for a lock file that
// cannot be closed, which is reported through messlog2.
int rm_lock(lock_struct_t* lock);
// The same.
int free_lock(lock_struct_t* lock);

struct FreeLock
{
    void operator()(lock_struct_t* lock) const { free_lock(lock); }
};

// Owns the result of the functions above. Call rm_lock(lock.release()) where its result counts.
using OwnedLock = std::unique_ptr<lock_struct_t, FreeLock>;

#endif
