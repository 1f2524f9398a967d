// pipe - runs a chain of programs as a shell runs a | b | c, without a shell
//
// Callbacks can feed the first stage's standard input and collect the last stage's standard output
// and standard error. One loop of the calling thread moves all data, so no stage can block against
// the tool. Feeding stops when the first stage ends or closes its input; the rest is dropped.
// SIGCHLD is unblocked while the loop runs.
//
// run() returns the raw wait status of the last stage. Only exitHandler sees how the earlier ones
// ended. There is no time limit. A Pipe runs once: assign a fresh one for another command. Do not
// nest pipelines.
//
// Deliberate: only the last stage's standard error can be read, whichever stage asks for it to
// be captured, and an env of the whole pipe reaches only stages that have one of their own.
//
// Raises std::logic_error for a second run, a run without stages and append after run, SystemError
// with the name of the call, what ProcessLaunch raises for a stage that cannot be started, and what
// a callback raises. Stages that run then are neither killed nor waited for; their pipes are
// closed.

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

// Installs the catcher and launches each stage in its slot of launches. SIGCHLD is blocked until
// the last one is in the catcher's table. Raises what launching a stage raises.
void launchAll(Stages const& stages, int stdinMode, int stdoutMode, ProcessSetCatcher& catcher,
               ProcessLaunch* launches, std::vector<ProcessStatus>& statuses);

// A receiver that appends each chunk to target, which must outlive the run.
ReceiverFunction makeStringReceiver(std::string& target);
void collectOutput(std::string& target, std::vector<char> const& chunk);

} // namespace orvek::process

#endif
