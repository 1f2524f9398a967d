#include "lib/report/caller_streams.h"

#include "lib/report/liblog.h"
#include "lib/report/owned.h"
#include "lib/report/product_log.h"
#include "support/child_run.h"
#include "support/temp_dir.h"

#include <gtest/gtest.h>

#include <climits>
#include <csignal>
#include <cstring>
#include <iostream>
#include <string>

#include <fcntl.h>
#include <poll.h>
#include <sys/socket.h>
#include <sys/stat.h>
#include <sys/wait.h>
#include <unistd.h>

namespace {

constexpr Patience for_ever = {INT_MAX, INT_MAX};
constexpr Patience none = {0, 0};

struct Ends
{
    int reading;
    int writing;
};

Ends pipeEnds()
{
    int ends[2] = {-1, -1};
    EXPECT_EQ(pipe(ends), 0);
    return {ends[0], ends[1]};
}

Ends socketEnds()
{
    int ends[2] = {-1, -1};
    EXPECT_EQ(socketpair(AF_UNIX, SOCK_STREAM, 0, ends), 0);
    return {ends[0], ends[1]};
}

Ends terminalEnds()
{
    int const master = posix_openpt(O_RDWR | O_NOCTTY);
    EXPECT_EQ(grantpt(master), 0);
    EXPECT_EQ(unlockpt(master), 0);
    return {master, open(ptsname(master), O_RDWR | O_NOCTTY)};
}

constexpr Ends (*kinds_of_ends[])() = {pipeEnds, socketEnds, terminalEnds};

// Fills the pipe until there is no room for another byte, and restores the flags.
void fill(int descriptor)
{
    int const flags = fcntl(descriptor, F_GETFL);
    fcntl(descriptor, F_SETFL, flags | O_NONBLOCK);
    for (std::size_t size : {std::size_t{4096}, std::size_t{1}}) {
        std::string const block(size, 'f');
        while (write(descriptor, block.data(), block.size()) > 0) {
        }
    }
    fcntl(descriptor, F_SETFL, flags);
}

// Without patience.
ssize_t written(int descriptor)
{
    Patience patience = none;
    return write_patiently(descriptor, "text", patience);
}

std::string contents(int reading)
{
    std::string text;
    char block[512];
    ssize_t got = 0;
    while ((got = read(reading, block, sizeof block)) > 0)
        text.append(block, static_cast<std::size_t>(got));
    return text;
}

// The output of a child that has both streams on the write end.
std::string readFrom(Ends ends, std::function<void()> const& code)
{
    pid_t const child = fork();
    if (child == 0) {
        close(ends.reading);
        dup2(ends.writing, STDOUT_FILENO);
        dup2(ends.writing, STDERR_FILENO);
        close(ends.writing);
        use_caller_streams(for_ever);
        code();
        exit(0);
    }
    close(ends.writing);
    std::string const text = contents(ends.reading);
    close(ends.reading);
    int status = -1;
    waitpid(child, &status, 0);
    EXPECT_EQ(status, 0);
    return text;
}

// Whether a child ends that prints to nobody. A child that waits is killed by a signal.
bool endsUnread(int out, int err, std::function<void()> const& code)
{
    auto const run = inChild([&] {
        alarm(60);
        dup2(out, STDOUT_FILENO);
        dup2(err, STDERR_FILENO);
        use_caller_streams(none);
        code();
        return 0;
    });
    return run.status == 0;
}

} // namespace

TEST(CallerStreams, WritesAllOfALongTextToASlowReader)
{
    std::string const text(1 << 20, 't');
    EXPECT_EQ(readFrom(pipeEnds(), [&] { std::cout << text; }), text);
    EXPECT_EQ(readFrom(socketEnds(), [&] { std::cerr << text; }), text);
}

TEST(CallerStreams, KeepsTheOrderOfAllKindsOfPrinting)
{
    errno = 0;
    EXPECT_EQ(readFrom(pipeEnds(),
                       [] {
                           std::cout << "1\n" << std::flush;
                           printf("2\n");
                           fflush(stdout);
                           std::cerr << "3\n";
                           fprintf(stderr, "4\n");
                           std::clog << "5\n";
                           messlog2(0, 0, "6");
                           orvek_log(3, "7");
                           std::cout << "8\n";
                           std::cerr << "9\n";
                       }),
              "1\n2\n3\n4\n5\n6\n6\n7\n7\n8\n9\n");
}

TEST(CallerStreams, WaitsForNobodyBeyondItsPatience)
{
    for (auto const make : kinds_of_ends) {
        Ends const ends = make();
        fill(ends.writing);
        EXPECT_TRUE(endsUnread(ends.writing, ends.writing, [] {
            std::cout << "text" << std::endl;
            std::cerr << "text";
            std::clog << "text";
            messlog2(0, 0, "text");
        }));
        close(ends.reading);
        close(ends.writing);
    }
}

TEST(CallerStreams, TakesEachWaitOffThePatienceInAll)
{
    Ends const ends = pipeEnds();
    fill(ends.writing);
    Patience patience = {5, 1000};
    EXPECT_EQ(write_patiently(ends.writing, "text", patience), 0);
    EXPECT_LE(patience.in_all, 995);
    patience = {INT_MAX, 5};
    EXPECT_EQ(write_patiently(ends.writing, "text", patience), 0);
    EXPECT_EQ(patience.in_all, 0);
    EXPECT_EQ(write_patiently(ends.writing, "text", patience), 0);
    EXPECT_EQ(errno, ETIMEDOUT);
}

TEST(CallerStreams, NeedsNoPatienceWithAReaderWhoKeepsUp)
{
    Ends const ends = pipeEnds();
    EXPECT_EQ(written(ends.writing), 4);
    EXPECT_EQ(written(ends.writing), 4);
}

TEST(CallerStreams, DropsNothingWithoutASign)
{
    Ends const ends = pipeEnds();
    fill(ends.writing);
    EXPECT_TRUE(endsUnread(ends.writing, STDERR_FILENO, [] {
        errno = EIO;
        if (fputs("text", stdout) < 0 || fflush(stdout) != 0 || ferror(stdout) || errno != EIO)
            abort();
    }));
}

TEST(CallerStreams, GivesUpBothStreamsOfOnePipe)
{
    Ends const ends = pipeEnds();
    fill(ends.writing);
    EXPECT_TRUE(endsUnread(ends.writing, ends.writing, [=] {
        std::cerr << "text";
        contents(fcntl(ends.reading, F_SETFL, O_NONBLOCK) == 0 ? ends.reading : -1);
        std::cout << "text" << std::flush;
    }));
    EXPECT_EQ(contents(ends.reading), "");
}

TEST(CallerStreams, GivesUpNoStreamThatIsRead)
{
    Ends const unread = pipeEnds();
    Ends const read = pipeEnds();
    fill(unread.writing);
    EXPECT_TRUE(endsUnread(read.writing, unread.writing, [] {
        std::cerr << "text";
        std::cout << "text" << std::flush;
    }));
    close(read.writing);
    EXPECT_EQ(contents(read.reading), "text");
}

TEST(CallerStreams, LeavesTheCallersDescriptorAsItWas)
{
    Ends const ends = pipeEnds();
    EXPECT_EQ(written(ends.writing), 4);
    EXPECT_EQ(fcntl(ends.writing, F_GETFL), O_WRONLY);
    fill(ends.writing);
    EXPECT_EQ(written(ends.writing), 0);
    EXPECT_EQ(errno, ETIMEDOUT);
    EXPECT_EQ(fcntl(ends.writing, F_GETFL), O_WRONLY);
}

TEST(CallerStreams, KeepsErrnoOfAWholeText)
{
    for (auto const make : kinds_of_ends) {
        errno = ENOENT;
        Ends const ends = make();
        errno = ENOENT;
        EXPECT_EQ(written(ends.writing), 4);
        EXPECT_EQ(errno, ENOENT);
    }
}

TEST(CallerStreams, WritesOnlyWhereTheCallerMayWrite)
{
    Ends const ends = pipeEnds();
    EXPECT_EQ(written(ends.reading), 0);
    EXPECT_EQ(errno, EBADF);
    close(ends.writing);
    EXPECT_EQ(contents(ends.reading), "");
}

TEST(CallerStreams, EndsByTheSignalOfAPipeWithoutReader)
{
    TempDir const dir;
    std::string const name = dir / "fifo";
    ASSERT_EQ(mkfifo(name.c_str(), 0600), 0);
    int const both = open(name.c_str(), O_RDWR);
    int const writing = open(name.c_str(), O_WRONLY);
    close(both);
    Ends const ends = pipeEnds();
    close(ends.reading);
    for (int const descriptor : {writing, ends.writing}) {
        auto const run = inChild([=] { return int(written(descriptor)); });
        EXPECT_EQ(run.signal, SIGPIPE);
        signal(SIGPIPE, SIG_IGN);
        EXPECT_EQ(written(descriptor), 0);
        EXPECT_EQ(errno, EPIPE);
        signal(SIGPIPE, SIG_DFL);
    }
}

TEST(CallerStreams, WritesIntoAFileAsBefore)
{
    auto const run = printedBy([] {
        FILE* const before = stdout;
        use_caller_streams(none);
        if (stdout != before)
            abort();
        std::cout << "text";
    });
    EXPECT_EQ(run.out, "text");
}

TEST(CallerStreams, WritesIntoTheDevicesOfMemoryAsBefore)
{
    for (char const* const name : {"/dev/null", "/dev/full"}) {
        auto const run = inChild([=] {
            dup2(open(name, O_WRONLY), STDOUT_FILENO);
            FILE* const before = stdout;
            use_caller_streams(none);
            return stdout == before ? 0 : 1;
        });
        EXPECT_EQ(run.status, 0) << name;
    }
    EXPECT_EQ(written(open("/dev/null", O_WRONLY | O_CLOEXEC)), 4);
    EXPECT_EQ(written(open("/dev/full", O_WRONLY | O_CLOEXEC)), 0);
    EXPECT_EQ(errno, ENOSPC);
}

TEST(CallerStreams, WritesIntoAFileThatTakesAPipesPlace)
{
    Ends const ends = pipeEnds();
    auto const run = inChild([=] {
        int const file = dup(STDOUT_FILENO);
        dup2(ends.writing, STDOUT_FILENO);
        use_caller_streams(none);
        dup2(file, STDOUT_FILENO);
        std::cout << "text";
        return 0;
    });
    EXPECT_EQ(run.out, "text");
}
