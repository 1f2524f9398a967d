#include "process/fd_owner.h"

#include "lib/report/owned.h"
#include "util/errors.h"
#include "util/retry_on_signal.h"

#include <cerrno>
#include <exception>
#include <utility>

#include <fcntl.h>
#include <unistd.h>

namespace orvek {

FdOwner FdOwner::borrowed(int descriptor)
{
    FdOwner result;
    result.fd = descriptor;
    return result;
}

FdOwner::FdOwner(FdOwner&& other) noexcept
    : owned(std::exchange(other.owned, -1)), fd(std::exchange(other.fd, -1))
{
}

FdOwner& FdOwner::operator=(FdOwner&& other) noexcept(false)
{
    if (this == &other)
        return *this;
    close();
    owned = std::exchange(other.owned, -1);
    fd = std::exchange(other.fd, -1);
    return *this;
}

FdOwner::~FdOwner() noexcept(false)
{
    if (std::uncaught_exceptions() == 0) {
        close();
        return;
    }
    ErrnoKeeper const keeper;
    closeQuietly();
}

void FdOwner::close()
{
    if (int const code = closeQuietly())
        throw SystemError("close", code);
}

int FdOwner::closeQuietly() noexcept
{
    // Clears the fields first, so that a signal handler never sees a closed descriptor.
    int const descriptor = std::exchange(owned, -1);
    fd = -1;
    if (descriptor == -1)
        return 0;
    return retryOnSignal([descriptor] { return ::close(descriptor); }) == -1 ? errno : 0;
}

PipeOwner::~PipeOwner() noexcept(false)
{
    bool const quiet = std::uncaught_exceptions() > 0;
    int const saved = errno;
    int const write_code = writeEnd.closeQuietly();
    int const read_code = readEnd.closeQuietly();
    // Deliberate: the message names the read end whichever end failed.
    if (!quiet && (write_code != 0 || read_code != 0))
        throw SystemError("pipe read-end close", write_code != 0 ? write_code : read_code);
    if (quiet)
        errno = saved;
}

FdOwner keptAboveStreams(int descriptor, char const* failure)
{
    if (descriptor < 0)
        throw SystemError(failure, errno);
    FdOwner low(descriptor);
    if (descriptor > STDERR_FILENO)
        return low;
    FdOwner high(fcntl(descriptor, F_DUPFD, STDERR_FILENO + 1));
    if (high.fd < 0)
        throw SystemError(failure, errno);
    return high;
}

PipeOwner openPipe(char const* failure)
{
    int ends[2];
    if (pipe(ends) == -1)
        throw SystemError(failure, errno);
    PipeOwner result;
    result.readEnd = FdOwner(ends[0]);
    result.writeEnd = FdOwner(ends[1]);
    for (FdOwner* const end : {&result.readEnd, &result.writeEnd})
        *end = keptAboveStreams(std::exchange(end->owned, -1), failure);
    return result;
}

void setNonBlocking(int descriptor, char const* failure)
{
    int const flags = retryOnSignal([=] { return fcntl(descriptor, F_GETFL); });
    if (flags == -1 ||
        retryOnSignal([=] { return fcntl(descriptor, F_SETFL, flags | O_NONBLOCK); }) == -1)
        throw SystemError(failure, errno);
}

} // namespace orvek
