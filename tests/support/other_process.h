// other_process - runs code in a second process and tells whether it is still running
//
// The child exits with status 0 if code returns true. hasEndedWithin waits for its end at most that
// many milliseconds, so that a test sees whether the child is blocked.

#ifndef MAILVEK_TESTS_SUPPORT_OTHER_PROCESS_H
#define MAILVEK_TESTS_SUPPORT_OTHER_PROCESS_H

#include <cerrno>
#include <functional>

#include <poll.h>
#include <sys/wait.h>
#include <unistd.h>

class OtherProcess
{
public:
    explicit OtherProcess(std::function<bool()> const& code)
    {
        if (pipe(ends) != 0)
            return;
        child = fork();
        if (child == 0)
            _exit(code() ? 0 : 1);
        close(ends[1]);
    }
    ~OtherProcess() { close(ends[0]); }
    OtherProcess(OtherProcess const&) = delete;
    OtherProcess& operator=(OtherProcess const&) = delete;

    // The pipe hangs up when the child has gone, because only the child could write to it.
    bool hasEndedWithin(int milliseconds)
    {
        pollfd watched{ends[0], POLLIN, 0};
        return poll(&watched, 1, milliseconds) == 1;
    }

    // Waits for the end of the child and returns its wait status.
    int status()
    {
        int result = -1;
        while (waitpid(child, &result, 0) < 0 && errno == EINTR) {
        }
        return result;
    }

private:
    int ends[2] = {-1, -1};
    pid_t child = -1;
};

#endif
