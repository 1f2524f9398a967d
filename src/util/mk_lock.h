// mk_lock - a lock between processes, held for the length of a scope
//
// The constructor takes the lock and the destructor frees it; the lock file stays on the
// disk. Unless the plain name is asked for, the lock file is one named after the MD5 of the
// path in /var/lock/files, so that locking a configuration file never touches it.
//
// Failures: a system error "lock() failed" when the lock cannot be made; for a lock that is
// not waited for and that another process holds, std::runtime_error that names the path. The
// destructor reports a failure and does not raise.

#ifndef MAILVEK_UTIL_MK_LOCK_H
#define MAILVEK_UTIL_MK_LOCK_H

#include "lib/files/op_locks.h"

#include <memory>
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
    struct FreeLock
    {
        void operator()(lock_struct_t* record) const;
    };

    std::unique_ptr<lock_struct_t, FreeLock> lock;
};

} // namespace orvek

#endif
