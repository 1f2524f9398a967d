#include "process/process_launch.h"

#include "lib/report/owned.h"
#include "process/child_report.h"
#include "process/child_start.h"
#include "util/errors.h"
#include "util/retry_on_signal.h"
#include "util/uerr.h"

#include <cerrno>
#include <cstdio>
#include <iostream>
#include <stdexcept>
#include <string>
#include <utility>
#include <vector>

#include <fcntl.h>
#include <sys/wait.h>
#include <unistd.h>

namespace orvek::process {

namespace {

// The reports and flags for preparing one of the three streams.
struct Stream
{
    char const* dev_null_failure;
    char const* pipe_failure;
    char const* bad_mode;
    bool child_reads;
};

constexpr Stream stdin_stream = {"stdin /dev/null open", "stdin pipe", "invalid FD for stdin",
                                 true};
constexpr Stream stdout_stream = {"stdout /dev/null open", "stdout pipe", "invalid FD for stdout",
                                  false};
constexpr Stream stderr_stream = {"stderr /dev/null open", "stderr pipe", "invalid FD for stderr",
                                  false};

FdOwner openDevNull(Stream const& stream)
{
    int const flags = stream.child_reads ? O_RDONLY : O_WRONLY;
    return keptAboveStreams(retryOnSignal([=] { return open("/dev/null", flags); }),
                            stream.dev_null_failure);
}

FdOwner openCapture(Stream const& stream, FdOwner& tool_end)
{
    PipeOwner made = openPipe(stream.pipe_failure);
    if (stream.child_reads)
        std::swap(made.readEnd, made.writeEnd);
    if (fcntl(made.readEnd.fd, F_SETFD, FD_CLOEXEC) == -1)
        throw SystemError(stream.pipe_failure, errno);
    tool_end = std::move(made.readEnd);
    return std::move(made.writeEnd);
}

// Returns the child's descriptor. Sets tool_end to the other end of a capture.
FdOwner prepareStream(Stream const& stream, int mode, FdOwner& tool_end)
{
    if (mode >= 0)
        return FdOwner::borrowed(mode);
    switch (mode) {
    case Unspecified:
    case Inherit:
        return FdOwner();
    case DevNull:
        return openDevNull(stream);
    case Capture:
        return openCapture(stream, tool_end);
    default:
        throw std::invalid_argument(stream.bad_mode);
    }
}

// The descriptor of the child's standard output, which is 1 for an inherited one.
FdOwner sharedWithStdout(FdOwner const& out)
{
    return FdOwner::borrowed(out.fd >= 0 ? out.fd : STDOUT_FILENO);
}

// Call this before the fork. A child that cannot exec leaves by exit, which flushes the buffers:
// pending text of the parent would be printed twice.
void flushPending()
{
    uerr.flush();
    std::cout.flush();
    std::clog.flush();
    fflush(nullptr);
}

} // namespace

ProcessLaunch::ProcessLaunch(char const* const* argv, char const* path, char const* cwd,
                             char const* const* env, bool closeDescriptors, bool searchPath,
                             bool newSession, boost::function<void()> const& childSetup,
                             int stdinMode, int stdoutMode, int stderrMode)
    : ProcessLaunch({.argv = argv,
                     .path = path,
                     .cwd = cwd,
                     .env = env,
                     .closeDescriptors = closeDescriptors,
                     .searchPath = searchPath,
                     .newSession = newSession,
                     .childSetup = childSetup,
                     .stdinMode = stdinMode,
                     .stdoutMode = stdoutMode,
                     .stderrMode = stderrMode})
{
}

ProcessLaunch::ProcessLaunch(LaunchOptions const& options)
{
    ChildStreams streams;
    streams.in = prepareStream(stdin_stream, options.stdinMode, stdinPipe);
    streams.out = prepareStream(stdout_stream, options.stdoutMode, stdoutPipe);
    streams.err = options.stderrMode == MergeWithStdout
                      ? sharedWithStdout(streams.out)
                      : prepareStream(stderr_stream, options.stderrMode, stderrPipe);
    controlPipe = openPipe("pipe");
    flushPending();
    int const before = errno;
    // The child goes on in this frame and never leaves it.
    // NOLINTNEXTLINE(clang-analyzer-security.insecureAPI.vfork,clang-analyzer-unix.Vfork)
    int const started = options.sharesMemory ? vfork() : retryOnSignal(fork);
    if (started == 0)
        startChild(*this, streams, options);
    if (started > 0)
        errno = before; // a child in this memory has left its own
    pid = started;
    // Deliberate: a failed fork has no message of its own.
    if (pid == -1)
        throw SystemError("pipe", errno);
    controlPipe.writeEnd.close();
    streams.in.close();
    streams.out.close();
    streams.err.close();
}

void ProcessLaunch::waitExec()
{
    ChildReport const report = readReport(controlPipe.readEnd);
    if (!report.type)
        return;
    {
        // The child has ended, since its report has: waitpid returns at once.
        ErrnoKeeper const keeper;
        int status = 0;
        if (retryOnSignal([&] { return waitpid(pid, &status, 0); }) == pid)
            reaped = status;
    }
    raiseReported(report);
}

int ProcessLaunch::waitExit()
{
    if (reaped)
        return *reaped;
    int status = 0;
    if (retryOnSignal([&] { return waitpid(pid, &status, 0); }) == -1)
        throw SystemError("unable to wait for child process exit", errno);
    return status;
}

ProcessLaunch launchOne(Parameters<PipeProcessFlags> const& parameters, int stdinMode,
                        int stdoutMode)
{
    std::string const& program = parameters.path.empty() ? parameters.args.at(0) : parameters.path;
    std::vector<char const*> argv;
    argv.reserve(parameters.args.size() + 1);
    for (std::string const& arg : parameters.args)
        argv.push_back(arg.c_str());
    argv.push_back(nullptr);
    bool const search_path = program[0] != '.' && program[0] != '/';
    char const* const cwd = parameters.cwd.empty() ? nullptr : parameters.cwd.c_str();
    int const stderr_mode =
        parameters.stderrMode == Unspecified ? int(Inherit) : parameters.stderrMode;
    return ProcessLaunch({.argv = argv.data(),
                          .path = program.c_str(),
                          .cwd = cwd,
                          .env = parameters.env,
                          .closeDescriptors = parameters.closeDescriptors,
                          .searchPath = search_path,
                          .childSetup = parameters.childSetup,
                          .sharesMemory = parameters.sharesMemory,
                          .stdinMode = stdinMode,
                          .stdoutMode = stdoutMode,
                          .stderrMode = stderr_mode});
}

} // namespace orvek::process
