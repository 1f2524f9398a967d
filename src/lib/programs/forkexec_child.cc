#include "lib/programs/forkexec_child.h"

#include "lib/report/liblog.h"
#include "lib/report/owned.h"

#include <cerrno>
#include <cstdio>
#include <cstring>

#include <fcntl.h>
#include <sys/wait.h>
#include <unistd.h>

pid_t fork_written_out()
{
    {
        ErrnoKeeper const keeper;
        fflush(nullptr);
    }
    return fork();
}

bool set_nonblocking(int fd)
{
    int const flags = fcntl(fd, F_GETFL);
    return flags >= 0 && fcntl(fd, F_SETFL, flags | O_NONBLOCK) >= 0;
}

void replace_program(char const* path, char const* const* args)
{
    execv(path, const_cast<char* const*>(args));
}

int exit_status(int wait_status)
{
    return WIFEXITED(wait_status) ? WEXITSTATUS(wait_status) : -1;
}

void report_failed_wait(pid_t child)
{
    messlog2(0, 0, "Error occured during waiting the child process with pid: %d: %s\n", child,
             strerror(errno));
}
