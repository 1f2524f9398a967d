#include "postfix/tools/tool_run.h"

#include "process/pipe.h"

#include <utility>

namespace orvek::mail::postfix {

namespace {

ToolResult run(char const* program, std::vector<std::string> const& arguments,
               ToolStreams const& streams)
{
    process::Parameters<process::PipeProcessFlags> stage(program);
    stage.args.insert(stage.args.end(), arguments.begin(), arguments.end());
    stage.childSetup = streams.childSetup;
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
    return run("/usr/sbin/postmap", arguments, streams);
}

ToolResult runPostconf(std::vector<std::string> const& arguments)
{
    return run("/usr/sbin/postconf", arguments, ToolStreams::withoutInput().collected());
}

} // namespace orvek::mail::postfix
