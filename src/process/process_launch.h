// process_launch - starts one child with chosen descriptors
//
// The constructor forks. What goes wrong in the child between fork and exec is raised in the
// parent by waitExec() as an exception of the same kind, its text unchanged; the child itself
// has left by then, with a status that nobody looks at, and has been waited for. The child's
// signal mask and signal actions are those it was forked with.
//
// The tool's end of a captured stream is in stdinPipe, stdoutPipe or stderrPipe; the caller may
// close it earlier. It is close-on-exec, so that it does not live on in a later child and keep
// this one from reaching the end of its input. Everything else that is open is inherited,
// unless closeDescriptors is set. The destructor closes what is left; it neither waits for the
// child nor kills it, and raises as FdOwner and PipeOwner do.
//
// Failures of the constructor: SystemError with the call's name, "pipe" also when fork fails,
// "close"; std::invalid_argument for a mode that is none.

#ifndef MAILVEK_PROCESS_PROCESS_LAUNCH_H
#define MAILVEK_PROCESS_PROCESS_LAUNCH_H

#include "process/fd_owner.h"
#include "process/flags.h"

#include <boost/function.hpp>

#include <optional>

namespace orvek::process {

class ProcessLaunch
{
public:
    // No child: a slot to move one into.
    ProcessLaunch() = default;
    // argv ends with a null; cwd null keeps the directory, env null the environment, and
    // searchPath counts only without env. The modes are those of flags.h.
    ProcessLaunch(char const* const* argv, char const* path, char const* cwd,
                  char const* const* env, bool closeDescriptors, bool searchPath, bool newSession,
                  boost::function<void()> const& childSetup, int stdinMode, int stdoutMode,
                  int stderrMode);

    // Returns when the child has exec'ed and raises its error when it could not. To be called
    // once, before anything else is concluded about the child. SystemError "control pipe read"
    // when the report cannot be read.
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

// Starts one stage of a pipeline. The program, args[0] where path is empty, is searched for in
// PATH unless it begins with "." or "/". std::out_of_range when there is neither.
ProcessLaunch launchOne(Parameters<PipeProcessFlags> const& parameters, int stdinMode,
                        int stdoutMode);

} // namespace orvek::process

#endif
