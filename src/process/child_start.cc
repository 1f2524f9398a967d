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

// The descriptors of the child, by number. The child may share the parent's memory, so it leaves
// the parent's owners alone and closes its own copies.
struct Numbers
{
    int in;
    int out;
    int err;
};

struct Placing
{
    int& source;
    int target;
    char const* failure;

    bool needed() const { return source >= 0 && source != target; }
};

void closeNumber(int descriptor)
{
    if (descriptor > STDERR_FILENO && retryOnSignal([=] { return close(descriptor); }) == -1)
        throw SystemError("close", errno);
}

// A caller may use one standard stream as the source of another, as a shell does for 2>&1. Copies
// such a source to a higher number before the first stream is overwritten.
void saveStream(Placing& placing)
{
    if (!placing.needed() || placing.source > STDERR_FILENO)
        return;
    int const copy = fcntl(placing.source, F_DUPFD, STDERR_FILENO + 1);
    if (copy == -1)
        throw SystemError(placing.failure, errno);
    placing.source = copy;
}

void place(Placing const& placing)
{
    if (placing.needed() &&
        retryOnSignal([&] { return dup2(placing.source, placing.target); }) == -1)
        throw SystemError(placing.failure, errno);
}

void placeStreams(Numbers streams)
{
    Placing placings[] = {{streams.in, STDIN_FILENO, "stdin dup2"},
                          {streams.out, STDOUT_FILENO, "stdout dup2"},
                          {streams.err, STDERR_FILENO, "stderr dup2"}};
    for (Placing& placing : placings)
        saveStream(placing);
    for (Placing const& placing : placings)
        place(placing);
    // Only now: streams may share their source.
    closeNumber(streams.in);
    if (streams.out != streams.in)
        closeNumber(streams.out);
    if (streams.err != streams.out && streams.err != streams.in)
        closeNumber(streams.err);
}

void closeToolsEnds(ProcessLaunch const& launch)
{
    closeNumber(launch.stdinPipe.fd);
    closeNumber(launch.stdoutPipe.fd);
    closeNumber(launch.stderrPipe.fd);
}

void prepare(ProcessLaunch const& launch, ChildStreams const& streams, LaunchOptions const& options)
{
    int const report = launch.controlPipe.writeEnd.fd;
    closeNumber(launch.controlPipe.readEnd.fd);
    if (retryOnSignal([=] { return fcntl(report, F_SETFD, FD_CLOEXEC); }) == -1)
        throw SystemError("control pipe close-on-exec fcntl", errno);
    closeToolsEnds(launch);
    placeStreams({streams.in.fd, streams.out.fd, streams.err.fd});
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

// Returns the exit status of a child that could not exec, which it has reported.
int failToExec(ProcessLaunch const& launch, ChildStreams const& streams,
               LaunchOptions const& options)
{
    int const report = launch.controlPipe.writeEnd.fd;
    try {
        prepare(launch, streams, options);
        exec(options);
    } catch (SystemError const& e) {
        writeException(report, "SystemError", e.what());
        writeErrorCode(report, e.code());
        return 67;
    } catch (std::runtime_error const& e) {
        writeException(report, "std::runtime_error", e.what());
        return 66;
    } catch (std::exception const& e) {
        writeException(report, "std::exception", e.what());
        return 66;
    } catch (...) {
        writeException(report, "std::runtime_error", "unknown error");
        return 65;
    }
}

} // namespace

// CHILD: only this function and what it calls run between fork and exec. The tool has one thread,
// so no lock is held by a thread that the child lacks. Allocation, exceptions, streams and the
// caller's childSetup are as safe here as in the parent. Never return and never let an exception
// out: the parent's code and its destructors would run a second time. The signal mask and actions
// stay as they were at the fork, so a stage of a pipeline starts with SIGCHLD blocked.
// Deliberate: exit and not _exit. Pending output was written out before the fork. With the parent's
// memory it is _exit: the parent's static objects must live on. A child in that memory allocates
// only to report a failure: a kill of it at any other moment leaves the parent's heap whole.
void startChild(ProcessLaunch const& launch, ChildStreams const& streams,
                LaunchOptions const& options)
{
    int const status = failToExec(launch, streams, options);
    if (options.sharesMemory)
        _exit(status);
    exit(status);
}

} // namespace orvek::process
