#include "lib/programs/forkexec.h"

#include "lib/programs/argument_vector.h"
#include "lib/programs/forkexec_child.h"
#include "lib/report/failure.h"
#include "lib/report/liblog.h"
#include "lib/report/owned.h"
#include "lib/text/growing_text.h"

#include <cerrno>
#include <cstdarg>
#include <cstdio>
#include <cstdlib>
#include <cstring>

#include <poll.h>
#include <sys/wait.h>
#include <unistd.h>

namespace {

constexpr int one_second = 1000;
constexpr int not_started = 255;

[[noreturn]] void out_of_memory()
{
    fatal("Cannot allocate buffer:\n%s", strerror(errno));
}

// Runs in the child from fork to exec. The tool has one thread, so stdio and exit are safe here.
[[noreturn]] void run_mixed(int const (&ends)[2], char const* path, char const* const* args)
{
    if (dup2(ends[1], STDOUT_FILENO) < 0 || dup2(ends[1], STDERR_FILENO) < 0)
        exit(-1);
    for (int const end : ends)
        if (end != STDOUT_FILENO && end != STDERR_FILENO)
            close(end);
    replace_program(path, args);
    printf("Cannot exec %s:\n%s", path, strerror(errno));
    exit(-1);
}

// Starts the child. Returns its pid, and in output_end the read end of the pipe for its output.
pid_t start(int& output_end, char const* path, char const* const* args)
{
    int ends[2] = {-1, -1};
    pid_t const child = pipe(ends) == 0 ? fork_written_out() : -1;
    if (child < 0)
        fatal("Cannot fork():\n%s", strerror(errno));
    if (child == 0)
        run_mixed(ends, path, args);
    close(ends[1]);
    output_end = ends[0];
    return child;
}

bool has_input(int fd, int milliseconds)
{
    ErrnoKeeper const keeper;
    pollfd polled = {fd, POLLIN, 0};
    return poll(&polled, 1, milliseconds) > 0;
}

// Reads once. False at the end of the output.
bool read_some(int fd, GrowingText& text)
{
    if (!text.make_room())
        out_of_memory();
    ssize_t const got = read(fd, text.end(), text.room());
    if (got > 0)
        text.added(static_cast<size_t>(got));
    else if (got < 0 && errno != EINTR)
        messlog2(0, 0, "Cannot read child output:\n%s", strerror(errno));
    return got > 0 || (got < 0 && errno == EINTR);
}

// Reads until the output or the child has ended. Returns 0 for the output, and the result of
// waitpid for the child.
pid_t read_output(pid_t child, int fd, GrowingText& text, int& status)
{
    for (;;) {
        if (has_input(fd, one_second)) {
            if (!read_some(fd, text))
                return 0;
            continue;
        }
        pid_t const ended = waitpid(child, &status, WNOHANG);
        if (ended == 0)
            continue;
        // The child may have printed between the last poll and its end.
        while (has_input(fd, 0) && read_some(fd, text)) {
        }
        return ended;
    }
}

// Reads all output and waits for the child. Sets its wait status; false, reported, without one.
bool collect(pid_t child, int output_end, GrowingText& text, int& status)
{
    OpenDescriptor const end(output_end);
    if (!text.make_room())
        out_of_memory();
    // A failure does no harm: each read follows a poll.
    static_cast<void>(set_nonblocking(end.get()));
    pid_t ended = read_output(child, end.get(), text, status);
    if (ended == 0)
        ended = waitpid(child, &status, WUNTRACED);
    if (ended < 0)
        report_failed_wait(child);
    text.terminate();
    return ended == child;
}

int judge(char const* path, int status, char const* printed)
{
    if (WIFSIGNALED(status))
        return failure(-1, "utility %s killed (signal %d):\n%s", path, WTERMSIG(status), printed);
    if (!WIFEXITED(status))
        return failure(-1, "utility %s crashed (status %d):\n%s", path, status, printed);
    int const result = WEXITSTATUS(status);
    if (result == not_started)
        return failure(result, "error:\n%s", printed);
    if (result != 0)
        return failure(result, "utility %s failed (result=%d):\n%s", path, result, printed);
    return 0;
}

} // namespace

int fork_execvv_getoutput(char** output, char const* path, char const* const* args)
{
    *output = nullptr;
    int output_end = -1;
    pid_t const child = start(output_end, path, args);
    GrowingText text;
    int status = 0;
    if (!collect(child, output_end, text, status))
        return -1;
    int const result = judge(path, status, text.get());
    if (result == 0)
        *output = text.release();
    return result;
}

int fork_execv_getoutput(char** output, char const* path, ...)
{
    va_list list;
    va_start(list, path);
    AllocatedVector const args = allocated_vector(path, list);
    va_end(list);
    if (!args)
        out_of_memory();
    return fork_execvv_getoutput(output, path, args.get());
}
