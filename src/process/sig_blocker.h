// sig_blocker - keeps signals blocked for the length of a scope
//
// block() adds a signal to the mask; the mask of the first call is what the destructor puts
// back.
//
// Failures raise SystemError: "get sigprocmask", "sigaddset", "set sigprocmask", and from the
// destructor "restore sigprocmask", unless an exception is in flight: then the failure is
// ignored and errno kept.

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

// The signal mask of the process; failure raises SystemError "get sigprocmask".
sigset_t currentSignalMask();

} // namespace orvek

#endif
