// mk_lock - a lock between processes, held for the length of a scope
//
// The constructor takes the lock and the destructor frees it. The lock file stays on the disk. Its
// name is the MD5 of the path in /var/lock/files, unless the plain name is asked for, so that
// locking a configuration file does not touch it.
//
// The constructor raises the system error "lock() failed" when the lock cannot be made. With
// do_not_wait it raises std::runtime_error with the path when another process has the lock. The
// destructor reports a failure and does not raise.

#ifndef MAILVEK_UTIL_MK_LOCK_H
#define MAILVEK_UTIL_MK_LOCK_H

#include "lib/files/op_locks.h"

#include <string>

namespace orvek {

class MKLock
{
public:
    enum FilenameFlag
    {
        hashed_name = 0,
        plain_name = 1
    };
    enum BlockFlag
    {
        wait = 0,
        do_not_wait = 1
    };

    explicit MKLock(std::string const& path, FilenameFlag filenameFlag = hashed_name,
                    BlockFlag blockFlag = wait);

private:
    OwnedLock lock;
};

} // namespace orvek

#endif
