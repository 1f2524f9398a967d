#include "lib/programs/forkexec.h"

#include "lib/programs/argument_vector.h"
#include "lib/programs/close_descriptors.h"
#include "lib/programs/forkexec_child.h"
#include "lib/report/failure.h"

#include <cerrno>
#include <cstdarg>
#include <cstdio>
#include <cstdlib>
#include <cstring>

#include <fcntl.h>
#include <sys/wait.h>
#include <unistd.h>

namespace {

// Makes the descriptor a standard stream; -1 stands for /dev/null.
[[nodiscard]] bool attach(int descriptor, int standard)
{
    if (descriptor == standard)
        return true;
    int const taken = descriptor == -1 ? open("/dev/null", O_RDWR) : descriptor;
    if (taken == standard) // the stream was closed, so open has given its number
        return true;
    return taken >= 0 && dup2(taken, standard) >= 0 && close(taken) == 0;
}

// Runs in the child from fork to exec. The tool has one thread, so no lock of the C library was
// held at the fork: stdio, malloc and exit are safe here.
[[noreturn]] void run_connected(int in, int out, int err, char const* path, char const* const* args)
{
    if (!attach(in, STDIN_FILENO) || !attach(out, STDOUT_FILENO) || !attach(err, STDERR_FILENO)) {
        fprintf(stderr, "fork_execv: dup() failed: %s\n", strerror(errno));
        exit(-1);
    }
    close_descriptors();
    errno = 0;
    replace_program(path, args);
    fprintf(stderr, "fork_execv: execv(\"%s\") failed: %s\n", path, strerror(errno));
    exit(-1);
}

} // namespace

pid_t fork_execv_pipes(int in, int out, int err, char const* path, char const* const* args)
{
    pid_t const child = fork_written_out();
    if (child < 0)
        fatal("fork_execv_pipes: fork() failed");
    if (child == 0)
        run_connected(in, out, err, path, args);
    return child;
}

pid_t fork_execl_pipes(int in, int out, int err, char const* path, ...)
{
    va_list list;
    va_start(list, path);
    FixedVector const args = fixed_vector(nullptr, list);
    va_end(list);
    return fork_execv_pipes(in, out, err, path, args.data());
}

int fork_execv(char const* path, ...)
{
    va_list list;
    va_start(list, path);
    FixedVector const args = fixed_vector(nullptr, list);
    va_end(list);
    fork_execv_pipes(-1, -1, -1, path, args.data());
    int status = 0;
    // Deliberate: waits for whichever child ends first, not for the one just started.
    wait(&status);
    return WIFSIGNALED(status) ? 1 : 0;
}

int do_exec(char const* program, char const* const* argv)
{
    pid_t const child = fork_written_out();
    if (child < 0)
        fatal("Cannot fork():\n%s", strerror(errno));
    if (child == 0) {
        replace_program(program, argv);
        exit(-1);
    }
    int status = 0;
    return waitpid(child, &status, 0) == child ? status : -1;
}
