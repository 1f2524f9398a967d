#include "util/mk_lock.h"

#include "util/errors.h"

#include <cerrno>
#include <stdexcept>

namespace orvek {

MKLock::MKLock(std::string const& path, FilenameFlag filenameFlag, BlockFlag blockFlag)
{
    errno = 0;
    int const hashed = filenameFlag == plain_name ? 0 : 1;
    lock.reset(blockFlag == do_not_wait ? mk_nonblock_lock(path.c_str(), hashed)
                                        : mk_lock(path.c_str(), hashed));
    int const code = errno;
    if (!lock || lock->fd < 0)
        throwSystemError("lock() failed", code);
    if (lock->fd == 0)
        throw std::runtime_error("lock(" + path + ") failed: file is already locked");
}

} // namespace orvek
