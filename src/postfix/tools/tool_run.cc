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
void limitProcessorTime(rlim_t seconds)
{
    rlimit limit = {};
    getrlimit(RLIMIT_CPU, &limit);
    limit.rlim_cur = std::min(limit.rlim_max, seconds);
    setrlimit(RLIMIT_CPU, &limit);
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
    ToolResult result = run("/usr/sbin/postmap", arguments, limited);
    if (WIFSIGNALED(result.status) && WTERMSIG(result.status) == SIGXCPU)
        result.diagnostics += "postmap has used up its processor time\n";
    return result;
}

ToolResult runPostconf(std::vector<std::string> const& arguments)
{
    return run("/usr/sbin/postconf", arguments, ToolStreams::withoutInput().collected());
}

} // namespace orvek::mail::postfix
