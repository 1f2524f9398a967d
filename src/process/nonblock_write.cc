#include "process/nonblock_write.h"

#include "util/errors.h"
#include "util/retry_on_signal.h"

#include <cerrno>

#include <unistd.h>

namespace orvek::process {

unsigned long nonblock_write(int fd, void const* data, unsigned long count)
{
    int const saved = errno;
    for (; count > 0; count /= 2) {
        ssize_t const written = retryOnSignal([=] { return write(fd, data, count); });
        if (written >= 0) {
            errno = saved;
            return static_cast<unsigned long>(written);
        }
        if (errno != EAGAIN)
            break;
    }
    throw SystemError("write", errno);
}

} // namespace orvek::process
