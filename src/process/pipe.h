// pipe - runs a chain of programs as a shell runs a | b | c, without a shell
//
// The caller may feed the first stage's standard input and collect the last stage's standard
// output and standard error through callbacks. All traffic runs in one loop of the calling
// thread, so no stage can block against the tool however much it reads or writes. Feeding stops
// when the first stage ends or closes its input; the rest of the input is dropped.
//
// run() returns the raw wait status of the last stage; how the earlier ones ended is seen by
// exitHandler alone. There is no time limit. One Pipe runs once: to run another command assign a
// fresh one. Pipelines do not nest.
//
// Deliberate: only the last stage's standard error can be read, whichever stage asks for it to
// be captured, and an env of the whole pipe reaches only stages that have one of their own.
//
// Failures: std::logic_error for a second run, a run without stages and append after run;
// SystemError with the name of the call; what ProcessLaunch raises for a stage that cannot be
// started; and whatever a callback raises. The stages that are running then are neither killed
// nor waited for, only their pipes are closed.

#ifndef MAILVEK_PROCESS_PIPE_H
#define MAILVEK_PROCESS_PIPE_H

#include "process/flags.h"
#include "process/process_launch.h"
#include "process/process_set_catcher.h"

#include <string>
#include <vector>

namespace orvek::process {

using Stages = std::vector<Parameters<PipeProcessFlags>>;

class Pipe : public PipeFlags
{
public:
    Pipe() = default;
    Pipe(Pipe const&) = default;
    Pipe(Pipe&&) = default;
    Pipe& operator=(Pipe const&) = default;
    Pipe& operator=(Pipe&&) = default;
    virtual ~Pipe();

    void append(Parameters<PipeProcessFlags> const& stage);
    int run();

    Stages stages;
    std::vector<ProcessStatus> statuses; // one for each launched stage; empty until run
};

// Launches all stages, each in its slot of launches, with SIGCHLD blocked until the last one is
// in the catcher's table, and installs the catcher. Raises what launching a stage raises.
void launchAll(Stages const& stages, int stdinMode, int stdoutMode, ProcessSetCatcher& catcher,
               ProcessLaunch* launches, std::vector<ProcessStatus>& statuses);

// A receiver that appends each chunk to target, which must outlive the run.
ReceiverFunction makeStringReceiver(std::string& target);
void collectOutput(std::string& target, std::vector<char> const& chunk);

} // namespace orvek::process

#endif
