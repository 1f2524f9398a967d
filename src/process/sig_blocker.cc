#include "process/sig_blocker.h"

#include "util/errors.h"
#include "util/retry_on_signal.h"

#include <cerrno>
#include <exception>

namespace orvek {

namespace {

int changeMask(int how, sigset_t const* set, sigset_t* old)
{
    return retryOnSignal([=] { return sigprocmask(how, set, old); });
}

} // namespace

sigset_t currentSignalMask()
{
    sigset_t mask;
    if (changeMask(SIG_BLOCK, nullptr, &mask) == -1)
        throw SystemError("get sigprocmask", errno);
    return mask;
}

void SigBlocker::block(int signal)
{
    sigset_t mask = currentSignalMask();
    if (sigaddset(&mask, signal) == -1)
        throw SystemError("sigaddset", errno);
    if (changeMask(SIG_BLOCK, &mask, blocking ? nullptr : &saved) == -1)
        throw SystemError("set sigprocmask", errno);
    blocking = true;
}

SigBlocker::~SigBlocker() noexcept(false)
{
    if (!blocking)
        return;
    bool const quiet = std::uncaught_exceptions() > 0;
    int const errno_before = errno;
    if (changeMask(SIG_SETMASK, &saved, nullptr) == 0)
        return;
    if (!quiet)
        throw SystemError("restore sigprocmask", errno);
    errno = errno_before;
}

} // namespace orvek
