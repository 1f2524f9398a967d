#include "lib/programs/forkexec.h"

#include "lib/programs/forkexec_child.h"
#include "lib/report/failure.h"
#include "lib/report/liblog.h"
#include "lib/report/owned.h"

#include <cerrno>
#include <cstdio>
#include <cstdlib>
#include <cstring>

#include <sys/wait.h>
#include <unistd.h>

namespace {

constexpr size_t longest_piece = 4095;

// 0, or the error number.
int attach_one(int given, int standard)
{
    if (given <= STDERR_FILENO) // closed by now, and its number may have been reused
        return EBADF;
    return dup2(given, standard) < 0 ? errno : 0;
}

[[nodiscard]] bool attach(int fd_in, int fd_out, int errors)
{
    for (int standard = 0; standard < 3; ++standard)
        close(standard);
    int const results[] = {attach_one(fd_in, STDIN_FILENO), attach_one(fd_out, STDOUT_FILENO),
                           attach_one(errors, STDERR_FILENO)};
    for (int const error : results)
        if (error != 0) {
            errno = error;
            return false;
        }
    return true;
}

void print_failed_exec()
{
    char const* const reason = strerror(errno);
    if (errno == EFAULT)
        fprintf(stderr,
                "Error occured during execv():\n%s, possible reason - NULL parameter is absent in "
                "util_exec(path, arg1, arg2, NULL) call.\n",
                reason);
    else
        fprintf(stderr, "Error occured during execv():\n%s.\n", reason);
}

// Runs in the child from fork to exec. The tool has one thread, so stdio and exit are safe here.
[[noreturn]] void run_connected(int fd_in, int fd_out, int const (&errors)[2], char const* path,
                                char const* const* args)
{
    if (!attach(fd_in, fd_out, errors[1])) {
        fprintf(stderr, "fork_execv: dup() failed: %s\n", strerror(errno));
        exit(-1);
    }
    for (int const end : errors)
        if (end > STDERR_FILENO)
            close(end);
    replace_program(path, args);
    print_failed_exec();
    exit(-1);
}

// Starts the child. Returns its pid, and in errors_end the read end of the pipe for its errors.
pid_t start(int& errors_end, int fd_in, int fd_out, char const* path, char const* const* args)
{
    int ends[2] = {-1, -1};
    pid_t const child = pipe(ends) == 0 ? fork_written_out() : -1;
    if (child < 0)
        fatal("Error occured during fork():\n%s", strerror(errno));
    if (child == 0)
        run_connected(fd_in, fd_out, ends, path, args);
    close(ends[1]);
    errors_end = ends[0];
    return child;
}

void report_pieces(int errors)
{
    char piece[longest_piece + 1];
    while (true) {
        ssize_t const got = read(errors, piece, longest_piece);
        if (got <= 0)
            return;
        piece[got] = '\0';
        messlog2(0, 0, "%s", piece);
    }
}

int wait_for(pid_t child)
{
    int status = 0;
    if (waitpid(child, &status, WUNTRACED) < 0) {
        report_failed_wait(child);
        return -1;
    }
    if (WIFSIGNALED(status))
        return failure(-1, "The child process with pid %d killed by signal %i\n", child,
                       WTERMSIG(status));
    if (WIFSTOPPED(status))
        return failure(-1, "The child process with pid %d stopped by signal %i\n", child,
                       WSTOPSIG(status));
    return WEXITSTATUS(status);
}

} // namespace

int fork_execv_fd(int fd_in, int fd_out, char const* path, char const* const* args)
{
    // Deliberate: no check for the other standard descriptors. The child closes them, so the start
    // fails if one is passed.
    if (fd_in == STDIN_FILENO || fd_out == STDOUT_FILENO)
        return failure(-1, "values 0,1,2 not allowed for variables fd_in & fd_out\n");
    int errors_end = -1;
    pid_t const child = start(errors_end, fd_in, fd_out, path, args);
    {
        OpenDescriptor const errors(errors_end);
        report_pieces(errors.get());
    }
    return wait_for(child);
}
