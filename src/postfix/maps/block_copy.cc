#include "postfix/maps/block_copy.h"

#include "lib/report/owned.h"
#include "util/retry_on_signal.h"

#include <cerrno>

#include <linux/fs.h>
#include <sys/ioctl.h>
#include <sys/sendfile.h>
#include <unistd.h>

namespace orvek::mail::postfix {

namespace {

// Whether the failure means that the kernel or the file system has no copy_file_range.
bool isUnknown(int code)
{
    return code == ENOSYS || code == EOPNOTSUPP || code == EXDEV || code == EINVAL || code == EPERM;
}

ssize_t copySome(int from, int to, size_t size)
{
    ssize_t const copied =
        retryOnSignal([=] { return copy_file_range(from, nullptr, to, nullptr, size, 0); });
    return copied < 0 && isUnknown(errno)
               ? retryOnSignal([=] { return sendfile(to, from, nullptr, size); })
               : copied;
}

} // namespace

bool shareBlocks(int from, int to)
{
    ErrnoKeeper const keeper;
    return ioctl(to, FICLONE, from) == 0;
}

int copyBlocks(int from, int to, off_t size)
{
    while (size > 0) {
        ssize_t const copied = copySome(from, to, static_cast<size_t>(size));
        if (copied < 0)
            return -1;
        if (copied == 0)
            break; // the file has become shorter
        size -= copied;
    }
    return 0;
}

} // namespace orvek::mail::postfix
