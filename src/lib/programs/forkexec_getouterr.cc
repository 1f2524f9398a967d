#include "lib/programs/forkexec.h"

#include "lib/programs/argument_vector.h"
#include "lib/programs/forkexec_child.h"
#include "lib/report/failure.h"
#include "lib/report/owned.h"
#include "lib/text/growing_text.h"

#include <algorithm>
#include <array>
#include <cerrno>
#include <cstdarg>
#include <cstdio>
#include <cstring>
#include <span>

#include <poll.h>
#include <sys/wait.h>
#include <unistd.h>

namespace {

constexpr size_t max_captures = 2;
constexpr int one_second = 1000;

// The read end of a pipe from the child, -1 once closed, and what has been read from it.
struct Capture
{
    Capture() = default;
    ~Capture() { close_end(); }
    Capture(Capture const&) = delete;
    Capture& operator=(Capture const&) = delete;

    void close_end()
    {
        ErrnoKeeper const keeper;
        if (fd >= 0)
            close(fd);
        fd = -1;
    }

    int fd = -1;
    GrowingText text;
};

// Opens a pipe for the capture and returns its write end.
int open_pipe(Capture& capture)
{
    int ends[2] = {-1, -1};
    if (pipe(ends) != 0)
        fatal("fork_execv_getouterr: pipe() failed");
    capture.fd = ends[0];
    return ends[1];
}

void read_without_waiting(Capture const& capture)
{
    if (!set_nonblocking(capture.fd))
        fatal("fork_execv_getouterr: fcntl(O_NONBLOCK) failed");
}

pid_t start(Capture& out, Capture& err, char const* path, char const* const* args)
{
    OpenDescriptor const out_end(open_pipe(out));
    OpenDescriptor const err_end(open_pipe(err));
    read_without_waiting(out);
    read_without_waiting(err);
    return fork_execv_pipes(STDIN_FILENO, out_end.get(), err_end.get(), path, args);
}

pid_t start(Capture& out, char const* path, char const* const* args)
{
    OpenDescriptor const out_end(open_pipe(out));
    read_without_waiting(out);
    return fork_execv_pipes(STDIN_FILENO, out_end.get(), STDERR_FILENO, path, args);
}

void read_to_buf(Capture& capture)
{
    if (!capture.text.make_room())
        fatal("Cannot allocate memory");
    ssize_t const got = read(capture.fd, capture.text.end(), capture.text.room());
    if (got > 0) {
        capture.text.added(static_cast<size_t>(got));
        return;
    }
    if (got < 0 && errno == EAGAIN)
        return;
    capture.close_end();
    if (got < 0) {
        fprintf(stderr, "fork_exec*: read(pipe) failed: %s\n", strerror(errno));
        errno = 0;
    }
}

// Reads once from each stream that has data or has ended. False when none had within the time, or
// a signal came.
bool read_ready(std::span<Capture> captures, int milliseconds)
{
    std::array<pollfd, max_captures> polled = {};
    for (size_t i = 0; i < captures.size(); ++i)
        polled[i] = {captures[i].fd, POLLIN, 0}; // poll ignores -1
    {
        ErrnoKeeper const keeper;
        if (poll(polled.data(), captures.size(), milliseconds) <= 0)
            return false;
    }
    for (size_t i = 0; i < captures.size(); ++i)
        if (polled[i].revents != 0)
            read_to_buf(captures[i]);
    return true;
}

bool any_open(std::span<Capture const> captures)
{
    return std::any_of(captures.begin(), captures.end(), [](auto const& c) { return c.fd >= 0; });
}

// Reads until all streams or the child have ended. Returns the child's exit status, or -1.
int collect(pid_t child, std::span<Capture> captures)
{
    int status = 0;
    while (any_open(captures)) {
        if (read_ready(captures, one_second))
            continue;
        pid_t const ended = waitpid(child, &status, WNOHANG);
        if (ended == 0)
            continue;
        // The child may have printed between the last poll and its end.
        while (read_ready(captures, 0)) {
        }
        return ended == child ? exit_status(status) : -1;
    }
    return waitpid(child, &status, WUNTRACED) == child ? exit_status(status) : -1;
}

char* finished(GrowingText& text)
{
    text.terminate();
    return text.release();
}

AllocatedVector listed_arguments(va_list list)
{
    AllocatedVector args = allocated_vector(nullptr, list);
    if (!args)
        fatal("malloc() failed: %s", strerror(errno));
    return args;
}

} // namespace

int fork_execv_getouterr(char** out, char** err, char const* path, char const* const* args)
{
    *out = nullptr;
    *err = nullptr;
    std::array<Capture, 2> captures;
    pid_t const child = start(captures[0], captures[1], path, args);
    int const result = collect(child, captures);
    *out = finished(captures[0].text);
    *err = finished(captures[1].text);
    return result;
}

int fork_execl_getouterr(char** out, char** err, char const* path, ...)
{
    va_list list;
    va_start(list, path);
    AllocatedVector const args = listed_arguments(list);
    va_end(list);
    return fork_execv_getouterr(out, err, path, args.get());
}

int fork_execv_getout(char** out, char const* path, char const* const* args)
{
    *out = nullptr;
    std::array<Capture, 1> captures;
    pid_t const child = start(captures[0], path, args);
    int const result = collect(child, captures);
    *out = finished(captures[0].text);
    return result;
}

int fork_execl_getout(char** out, char const* path, ...)
{
    va_list list;
    va_start(list, path);
    AllocatedVector const args = listed_arguments(list);
    va_end(list);
    return fork_execv_getout(out, path, args.get());
}
