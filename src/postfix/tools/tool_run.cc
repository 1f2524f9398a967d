#include "postfix/tools/tool_run.h"

#include "process/pipe.h"

#include <algorithm>
#include <csignal>
#include <utility>

#include <sys/resource.h>
#include <sys/wait.h>

namespace orvek::mail::postfix {

namespace {

ToolResult run(char const* program, std::vector<std::string> const& arguments,
               ToolStreams const& streams)
{
    process::Parameters<process::PipeProcessFlags> stage(program);
    stage.args.insert(stage.args.end(), arguments.begin(), arguments.end());
    stage.childSetup = streams.childSetup;
    stage.sharesMemory = true;
    ToolResult result;
    process::Pipe pipe;
    pipe.append(stage);
    pipe.stdinMode = streams.inputMode;
    pipe.stdinSource = streams.source;
    if (streams.collects || streams.receiver) {
        pipe.stdoutMode = process::Capture;
        pipe.stdoutReceiver =
            streams.collects ? process::makeStringReceiver(result.output) : streams.receiver;
    }
    pipe.stderrMode = process::Capture;
    pipe.stderrReceiver = process::makeStringReceiver(result.diagnostics);
    result.status = pipe.run();
    return result;
}

// Runs in the child. An indexed file whose pages form a circle would keep postmap busy for ever.
// postmap blocks signals while it changes a map, so the kernel must kill it in the end.
void limitProcessorTime(rlim_t seconds)
{
    rlimit limit = {};
    getrlimit(RLIMIT_CPU, &limit);
    limit.rlim_cur = std::min(limit.rlim_max, seconds);
    limit.rlim_max = std::min(limit.rlim_max, seconds + 1);
    setrlimit(RLIMIT_CPU, &limit);
}

// The seconds that all children have used that have ended.
rlim_t secondsOfChildren()
{
    rusage used = {};
    getrusage(RUSAGE_CHILDREN, &used);
    return static_cast<rlim_t>(used.ru_utime.tv_sec + used.ru_stime.tv_sec);
}

bool hasUsedUpItsTime(int status, rlim_t used, rlim_t allowed)
{
    return WIFSIGNALED(status) &&
           (WTERMSIG(status) == SIGXCPU || (WTERMSIG(status) == SIGKILL && used >= allowed));
}

} // namespace

ToolStreams ToolStreams::withoutInput()
{
    ToolStreams streams;
    streams.inputMode = process::DevNull;
    return streams;
}

ToolStreams ToolStreams::fedBy(TextSource source)
{
    ToolStreams streams;
    streams.inputMode = process::Capture;
    streams.source = std::move(source);
    return streams;
}

ToolStreams& ToolStreams::receivedBy(process::ReceiverFunction outputReceiver)
{
    receiver = std::move(outputReceiver);
    return *this;
}

ToolStreams& ToolStreams::collected()
{
    collects = true;
    return *this;
}

ToolResult runPostmap(std::vector<std::string> const& arguments, ToolStreams const& streams)
{
    ToolStreams limited = streams;
    limited.childSetup = [&] {
        limitProcessorTime(streams.processorSeconds);
        if (!streams.childSetup.empty())
            streams.childSetup();
    };
    rlim_t const before = secondsOfChildren();
    ToolResult result = run("/usr/sbin/postmap", arguments, limited);
    if (hasUsedUpItsTime(result.status, secondsOfChildren() - before, streams.processorSeconds))
        result.diagnostics += "postmap has used up its processor time\n";
    return result;
}

ToolResult runPostconf(std::vector<std::string> const& arguments)
{
    return run("/usr/sbin/postconf", arguments, ToolStreams::withoutInput().collected());
}

} // namespace orvek::mail::postfix
