#include "process/process_set_catcher.h"

#include "lib/report/owned.h"
#include "process/sig_blocker.h"
#include "util/errors.h"
#include "util/retry_on_signal.h"

#include <cerrno>
#include <exception>
#include <stdexcept>
#include <utility>

#include <sys/wait.h>
#include <unistd.h>

namespace orvek::process {

ProcessSetCatcher* __global_handler = nullptr;

namespace {

int changeAction(struct sigaction const* action, struct sigaction* old)
{
    return retryOnSignal([=] { return sigaction(SIGCHLD, action, old); });
}

PipeOwner openSelfPipe()
{
    PipeOwner result = openPipe("process set catcher control pipe");
    setNonBlocking(result.readEnd.fd, "control pipe fcntl");
    setNonBlocking(result.writeEnd.fd, "control pipe fcntl");
    return result;
}

} // namespace

ProcessSetCatcher::~ProcessSetCatcher() noexcept(false)
{
    bool const unwinding = std::uncaught_exceptions() > 0;
    int const saved = errno;
    try {
        remove(unwinding);
    } catch (std::exception const&) {
        // The signal handler must not outlive the table that it writes to.
        abandon();
        if (!unwinding)
            throw;
    }
    if (unwinding)
        errno = saved;
}

void ProcessSetCatcher::install()
{
    if (__global_handler)
        throw std::logic_error("ProcessSetCatcher instance has been installed already");
    struct sigaction action = {};
    action.sa_sigaction = childHandler;
    action.sa_flags = SA_SIGINFO | SA_NOCLDSTOP;
    action.sa_mask = currentSignalMask();
    if (changeAction(&action, &oldAction) == -1)
        throw SystemError("sigaction", errno);
    try {
        controlPipe = openSelfPipe();
    } catch (...) {
        changeAction(&oldAction, nullptr);
        throw;
    }
    __global_handler = this;
}

void ProcessSetCatcher::remove(bool force)
{
    if (__global_handler != this)
        return;
    controlPipe.writeEnd.close();
    controlPipe.readEnd.close();
    if (!force && finished < processes.size())
        throw std::logic_error("there're some child processes still running");
    // The handler reads the table, so it is removed before the table is emptied.
    if (changeAction(&oldAction, nullptr) == -1)
        throw SystemError("restore sigaction", errno);
    __global_handler = nullptr;
    processes.clear();
    finished = 0;
    changed = 0;
}

void ProcessSetCatcher::abandon() noexcept
{
    changeAction(&oldAction, nullptr);
    __global_handler = nullptr;
}

unsigned long ProcessSetCatcher::clear_control()
{
    ErrnoKeeper const keeper;
    unsigned long count = 0;
    char byte = 0;
    while (retryOnSignal([&] { return read(controlPipe.readEnd.fd, &byte, 1); }) == 1)
        ++count;
    return count;
}

void ProcessSetCatcher::note(int pid, int status)
{
    auto const entry = processes.find(pid);
    if (entry == processes.end())
        return;
    entry->second = {1, status};
    ++changed;
    if (!WIFEXITED(status) && !WIFSIGNALED(status))
        return;
    ++finished;
    retryOnSignal([this] { return write(controlPipe.writeEnd.fd, "t", 1); });
}

// A signal handler: it touches only the table's entries, the counters, the self-pipe and errno.
void ProcessSetCatcher::childHandler(int, siginfo_t*, void*)
{
    ProcessSetCatcher* const catcher = __global_handler;
    if (!catcher)
        return;
    ErrnoKeeper const keeper;
    for (;;) {
        int status = 0;
        pid_t const pid = retryOnSignal([&] { return waitpid(-1, &status, WNOHANG); });
        if (pid <= 0)
            return;
        catcher->note(pid, status);
    }
}

} // namespace orvek::process
