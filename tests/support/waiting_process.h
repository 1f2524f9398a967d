// waiting_process - a child that waits as long as the test wants
//
// The child runs code, and the constructor returns when code has returned or called exec. The child
// then waits for the end of its standard input, which the destructor closes. A program that code
// starts with exec must end with its input too.

#ifndef MAILVEK_TESTS_SUPPORT_WAITING_PROCESS_H
#define MAILVEK_TESTS_SUPPORT_WAITING_PROCESS_H

#include <cerrno>
#include <functional>

#include <fcntl.h>
#include <sys/wait.h>
#include <unistd.h>

class WaitingProcess
{
public:
    explicit WaitingProcess(std::function<void()> const& code)
    {
        int input[2] = {-1, -1};
        int ready[2] = {-1, -1};
        if (pipe2(input, O_CLOEXEC) != 0 || pipe2(ready, O_CLOEXEC) != 0)
            return;
        pid = fork();
        if (pid == 0) {
            dup2(input[0], STDIN_FILENO);
            close(input[1]);
            close(ready[0]);
            code();
            while (write(ready[1], "", 1) < 0 && errno == EINTR) {
            }
            close(ready[1]);
            awaitEndOfInput();
            _exit(0);
        }
        close(input[0]);
        close(ready[1]);
        end = input[1];
        awaitEnd(ready[0]);
        close(ready[0]);
    }
    ~WaitingProcess()
    {
        close(end);
        while (waitpid(pid, nullptr, 0) < 0 && errno == EINTR) {
        }
    }
    WaitingProcess(WaitingProcess const&) = delete;
    WaitingProcess& operator=(WaitingProcess const&) = delete;

    pid_t pid = -1;

private:
    static void awaitEnd(int fd)
    {
        char byte = 0;
        while (read(fd, &byte, 1) < 0 && errno == EINTR) {
        }
    }
    static void awaitEndOfInput() { awaitEnd(STDIN_FILENO); }

    int end = -1;
};

#endif
