// sig_blocker - keeps signals blocked for the length of a scope
//
// block() adds a signal to the mask. The destructor restores the mask from before the first call.
//
// A failure raises SystemError: "get sigprocmask", "sigaddset", "set sigprocmask", and in the
// destructor "restore sigprocmask". While an exception is in flight the destructor ignores its
// failure and keeps errno.

#ifndef MAILVEK_PROCESS_SIG_BLOCKER_H
#define MAILVEK_PROCESS_SIG_BLOCKER_H

#include <csignal>

namespace orvek {

class SigBlocker
{
public:
    SigBlocker() = default;
    SigBlocker(SigBlocker const&) = delete;
    SigBlocker& operator=(SigBlocker const&) = delete;
    ~SigBlocker() noexcept(false);

    void block(int signal);

private:
    sigset_t saved = {};
    bool blocking = false;
};

// The signal mask of the process. A failure raises SystemError "get sigprocmask".
sigset_t currentSignalMask();

} // namespace orvek

#endif
