// process_launch - starts one child with chosen descriptors
//
// The constructor forks. When the child fails between fork and exec, waitExec() raises an exception
// of the same kind and text in the parent. The child has ended then and has been waited for. The
// child keeps the signal mask and signal actions of the fork.
//
// stdinPipe, stdoutPipe and stderrPipe have the tool's ends of captured streams; the caller may
// close them earlier. They are close-on-exec: in a later child they would keep this one from the
// end of its input. Everything else that is open is inherited unless closeDescriptors is set. The
// destructor closes what is left and raises as FdOwner and PipeOwner do. It neither waits for the
// child nor kills it.
//
// The constructor raises SystemError with the call's name ("pipe" also for fork, "close") and
// std::invalid_argument for an unknown mode.

#ifndef MAILVEK_PROCESS_PROCESS_LAUNCH_H
#define MAILVEK_PROCESS_PROCESS_LAUNCH_H

#include "process/fd_owner.h"
#include "process/flags.h"

#include <boost/function.hpp>

#include <optional>

namespace orvek::process {

// The program to start, and how. Name the fields, in this order.
struct LaunchOptions
{
    char const* const* argv;          // ends with a null
    char const* path;                 // the program
    char const* cwd = nullptr;        // null keeps the directory
    char const* const* env = nullptr; // null keeps the environment
    bool closeDescriptors = false;    // the child closes everything from 3 upward
    bool searchPath = false;          // looks for the program in PATH; counts only without env
    bool newSession = false;          // makes the child the leader of a session
    boost::function<void()> childSetup = {}; // runs in the child just before exec
    bool sharesMemory = false;               // see flags.h
    int stdinMode = Inherit;                 // the modes are those of flags.h
    int stdoutMode = Inherit;
    int stderrMode = Inherit;
};

class ProcessLaunch
{
public:
    // No child: a slot to move one into.
    ProcessLaunch() = default;
    explicit ProcessLaunch(LaunchOptions const& options);
    // The same with the options as arguments. argv ends with a null. A null cwd keeps the
    // directory, a null env the environment. searchPath counts only without env. The modes are
    // those of flags.h.
    ProcessLaunch(char const* const* argv, char const* path, char const* cwd,
                  char const* const* env, bool closeDescriptors, bool searchPath, bool newSession,
                  boost::function<void()> const& childSetup, int stdinMode, int stdoutMode,
                  int stderrMode);

    // Returns when the child has exec'ed, and raises its error when it could not. Call it once,
    // before any other use of the child. SystemError "control pipe read" when the report cannot
    // be read.
    void waitExec();

    // Waits for the child's end and returns its raw wait status. SystemError "unable to wait for
    // child process exit".
    int waitExit();

    int pid = -1;
    FdOwner stdinPipe;
    FdOwner stdoutPipe;
    FdOwner stderrPipe;
    PipeOwner controlPipe;

private:
    // The status of a child that failed before exec, which waitExec has waited for.
    std::optional<int> reaped;
};

// Starts one stage of a pipeline. The program is path, or args[0] when path is empty. It is
// searched in PATH unless it begins with "." or "/". std::out_of_range without either.
ProcessLaunch launchOne(Parameters<PipeProcessFlags> const& parameters, int stdinMode,
                        int stdoutMode);

} // namespace orvek::process

#endif
