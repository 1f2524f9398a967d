#include "lib/report/caller_streams.h"

#include "lib/report/owned.h"

#include <algorithm>
#include <cerrno>
#include <chrono>
#include <climits>
#include <csignal>
#include <cstdint>
#include <cstdio>
#include <iostream>

#include <ext/stdio_sync_filebuf.h>
#include <fcntl.h>
#include <poll.h>
#include <sys/socket.h>
#include <sys/stat.h>
#include <sys/sysmacros.h>
#include <unistd.h>

namespace {

using CppBuffer = __gnu_cxx::stdio_sync_filebuf<char>;

// ------------------------------------------------------------------------------- one stream

// Opening this device again would give another device: the other end of a new terminal.
constexpr unsigned multiplexer_major = 5;
constexpr unsigned multiplexer_minor = 2;
// The memory devices: /dev/null and the like.
constexpr unsigned memory_major = 1;

// Whether a write never waits for a reader.
bool never_waits(struct stat const& found)
{
    return S_ISREG(found.st_mode) ||
           (S_ISCHR(found.st_mode) && major(found.st_rdev) == memory_major);
}

bool is_terminal(int descriptor, struct stat const& found)
{
    return S_ISCHR(found.st_mode) &&
           found.st_rdev != makedev(multiplexer_major, multiplexer_minor) && isatty(descriptor);
}

// A pipe is opened again only for writing that the caller's descriptor already allows.
bool may_write(int descriptor)
{
    int const flags = fcntl(descriptor, F_GETFL);
    return flags >= 0 && (flags & O_ACCMODE) != O_RDONLY;
}

// Opens the descriptor's file again, so that this descriptor alone is non-blocking.
int opened_again(int descriptor)
{
    char path[32];
    snprintf(path, sizeof path, "/proc/self/fd/%d", descriptor);
    return open(path, O_WRONLY | O_NONBLOCK | O_NOCTTY | O_CLOEXEC);
}

// The last resort, when the file cannot be opened again: writes no more than there is room for now.
// Somebody who fills the room first can still block it.
ssize_t write_what_fits(int descriptor, std::string_view text, struct stat const& found)
{
    pollfd room = {descriptor, POLLOUT, 0};
    if (poll(&room, 1, 0) == 0) {
        errno = EAGAIN;
        return -1;
    }
    std::size_t const most = S_ISFIFO(found.st_mode) ? PIPE_BUF : 1;
    return write(descriptor, text.data(), std::min(text.size(), most));
}

ssize_t write_at_once(int descriptor, std::string_view text)
{
    struct stat found = {};
    if (fstat(descriptor, &found) != 0 || never_waits(found) || !may_write(descriptor))
        return write(descriptor, text.data(), text.size());
    if (S_ISSOCK(found.st_mode))
        return send(descriptor, text.data(), text.size(), MSG_DONTWAIT);
    if (!S_ISFIFO(found.st_mode) && !is_terminal(descriptor, found))
        return write_what_fits(descriptor, text, found);
    // Not kept open, because in a child its number may soon belong to another file.
    OpenDescriptor const ours(opened_again(descriptor));
    if (ours.get() >= 0)
        return write(ours.get(), text.data(), text.size());
    if (errno != ENXIO)
        return write_what_fits(descriptor, text, found);
    // A named pipe that nobody has open for reading.
    raise(SIGPIPE);
    errno = EPIPE;
    return -1;
}

[[nodiscard]] bool wait_for_room(int descriptor, Patience& patience)
{
    using Clock = std::chrono::steady_clock;
    pollfd room = {descriptor, POLLOUT, 0};
    auto const began = Clock::now();
    int const ready = poll(&room, 1, std::min(patience.once, patience.in_all));
    auto const waited = std::chrono::ceil<std::chrono::milliseconds>(Clock::now() - began);
    patience.in_all -= static_cast<int>(std::min<std::int64_t>(waited.count(), patience.in_all));
    if (ready == 0)
        errno = ETIMEDOUT;
    return ready > 0 || (ready < 0 && errno == EINTR);
}

// ------------------------------------------------------------------------- the two streams

struct CallerStream
{
    int descriptor;
    bool is_dropped;
};

CallerStream streams[] = {{STDOUT_FILENO, false}, {STDERR_FILENO, false}};
Patience patience_with_reader = {};

bool lead_to_the_same(int one, int other)
{
    struct stat first = {};
    struct stat second = {};
    return fstat(one, &first) == 0 && fstat(other, &second) == 0 && first.st_dev == second.st_dev &&
           first.st_ino == second.st_ino;
}

void drop_what_leads_to(int descriptor)
{
    for (CallerStream& stream : streams)
        if (lead_to_the_same(stream.descriptor, descriptor))
            stream.is_dropped = true;
}

ssize_t write_stream(void* cookie, char const* text, size_t size)
{
    auto const& stream = *static_cast<CallerStream*>(cookie);
    auto const all = static_cast<ssize_t>(size);
    if (stream.is_dropped)
        return all;
    int const saved = errno;
    ssize_t const written = write_patiently(stream.descriptor, {text, size}, patience_with_reader);
    if (written == all || errno != ETIMEDOUT)
        return written;
    drop_what_leads_to(stream.descriptor);
    errno = saved;
    return all;
}

// The replacement for a standard stream, with the same buffering. Null when none is needed.
FILE* replacement(CallerStream& stream)
{
    static char buffer[4096]; // the size that stdio uses for a pipe
    struct stat found = {};
    if (fstat(stream.descriptor, &found) != 0 || never_waits(found))
        return nullptr;
    FILE* const made = fopencookie(&stream, "w", {nullptr, write_stream, nullptr, nullptr});
    if (!made)
        return nullptr;
    if (stream.descriptor == STDERR_FILENO)
        setvbuf(made, nullptr, _IONBF, 0);
    else
        setvbuf(made, buffer, isatty(stream.descriptor) ? _IOLBF : _IOFBF, sizeof buffer);
    return made;
}

} // namespace

ssize_t write_patiently(int descriptor, std::string_view text, Patience& patience)
{
    int const saved = errno;
    std::size_t written = 0;
    while (written < text.size()) {
        ssize_t const piece = write_at_once(descriptor, text.substr(written));
        if (piece > 0)
            written += static_cast<std::size_t>(piece);
        else if (piece == 0 ||
                 (errno != EINTR && (errno != EAGAIN || !wait_for_room(descriptor, patience))))
            return static_cast<ssize_t>(written);
    }
    errno = saved;
    return static_cast<ssize_t>(written);
}

void use_caller_streams(Patience patience)
{
    ErrnoKeeper const keeper;
    patience_with_reader = patience;
    // The buffers are never destroyed, because destructors of static objects print.
    if (FILE* const out = replacement(streams[0])) {
        stdout = out;
        std::cout.rdbuf(new CppBuffer(out));
    }
    if (FILE* const err = replacement(streams[1])) {
        stderr = err;
        std::cerr.rdbuf(new CppBuffer(err));
        std::clog.rdbuf(std::cerr.rdbuf());
    }
}
