#include "process/child_start.h"

#include "lib/programs/close_descriptors.h"
#include "process/child_report.h"
#include "process/process_launch.h"
#include "util/errors.h"
#include "util/retry_on_signal.h"

#include <cerrno>
#include <cstdlib>
#include <exception>
#include <stdexcept>

#include <fcntl.h>
#include <unistd.h>

namespace orvek::process {

namespace {

struct Placing
{
    FdOwner& source;
    int target;
    char const* failure;

    bool needed() const { return source.fd >= 0 && source.fd != target; }
};

// A caller may use one standard stream as the source of another, as a shell does for 2>&1. Copies
// such a source to a higher number before the first stream is overwritten.
void saveStream(Placing& placing)
{
    if (!placing.needed() || placing.source.fd > STDERR_FILENO)
        return;
    int const copy = fcntl(placing.source.fd, F_DUPFD, STDERR_FILENO + 1);
    if (copy == -1)
        throw SystemError(placing.failure, errno);
    placing.source = FdOwner(copy);
}

void place(Placing const& placing)
{
    if (placing.needed() &&
        retryOnSignal([&] { return dup2(placing.source.fd, placing.target); }) == -1)
        throw SystemError(placing.failure, errno);
}

// Call this after all streams are placed: standard error may share its source with standard
// output. Closes borrowed descriptors too, because the child has copies of them.
void closeSource(FdOwner& source)
{
    if (source.owned == -1 && source.fd > STDERR_FILENO)
        source.owned = source.fd;
    source.close();
}

void placeStreams(ChildStreams& streams)
{
    Placing placings[] = {{streams.in, STDIN_FILENO, "stdin dup2"},
                          {streams.out, STDOUT_FILENO, "stdout dup2"},
                          {streams.err, STDERR_FILENO, "stderr dup2"}};
    for (Placing& placing : placings)
        saveStream(placing);
    for (Placing const& placing : placings)
        place(placing);
    if (streams.err.fd == streams.out.fd || streams.err.fd == streams.in.fd)
        streams.err = FdOwner();
    if (streams.out.fd == streams.in.fd)
        streams.out = FdOwner();
    for (Placing const& placing : placings)
        closeSource(placing.source);
}

void closeToolsEnds(ProcessLaunch& launch)
{
    launch.stdinPipe.close();
    launch.stdoutPipe.close();
    launch.stderrPipe.close();
}

void prepare(ProcessLaunch& launch, ChildStreams& streams, LaunchOptions const& options)
{
    int const report = launch.controlPipe.writeEnd.fd;
    launch.controlPipe.readEnd.close();
    if (retryOnSignal([=] { return fcntl(report, F_SETFD, FD_CLOEXEC); }) == -1)
        throw SystemError("control pipe close-on-exec fcntl", errno);
    closeToolsEnds(launch);
    placeStreams(streams);
    if (options.cwd && retryOnSignal([&] { return chdir(options.cwd); }) == -1)
        throw SystemError("cwd chdir", errno);
    if (options.closeDescriptors)
        close_descriptors(report);
    if (options.newSession && retryOnSignal(setsid) == -1)
        throw SystemError("setsid", errno);
    if (!options.childSetup.empty())
        options.childSetup();
}

// exec does not write to the strings, although its types allow it.
char* const* execVector(char const* const* strings)
{
    return const_cast<char* const*>(strings);
}

[[noreturn]] void exec(LaunchOptions const& options)
{
    char const* failure = "execv";
    char* const* const argv = execVector(options.argv);
    if (options.env) {
        failure = "execve";
        retryOnSignal([&] { return execve(options.path, argv, execVector(options.env)); });
    } else if (options.searchPath) {
        failure = "execvp";
        retryOnSignal([&] { return execvp(options.path, argv); });
    } else {
        retryOnSignal([&] { return execv(options.path, argv); });
    }
    throw SystemError(failure, errno);
}

} // namespace

// CHILD: only this function and what it calls run between fork and exec. The tool has one thread,
// so no lock is held by a thread that the child lacks. Allocation, exceptions, streams and the
// caller's childSetup are as safe here as in the parent. Never return and never let an exception
// out: the parent's code and its destructors would run a second time. The signal mask and actions
// stay as they were at the fork, so a stage of a pipeline starts with SIGCHLD blocked.
// Deliberate: exit and not _exit. Pending output was written out before the fork.
void startChild(ProcessLaunch& launch, ChildStreams& streams, LaunchOptions const& options)
{
    int const report = launch.controlPipe.writeEnd.fd;
    try {
        prepare(launch, streams, options);
        exec(options);
    } catch (SystemError const& e) {
        writeException(report, "SystemError", e.what());
        writeErrorCode(report, e.code());
        exit(67);
    } catch (std::runtime_error const& e) {
        writeException(report, "std::runtime_error", e.what());
        exit(66);
    } catch (std::exception const& e) {
        writeException(report, "std::exception", e.what());
        exit(66);
    } catch (...) {
        writeException(report, "std::runtime_error", "unknown error");
        exit(65);
    }
}

} // namespace orvek::process
