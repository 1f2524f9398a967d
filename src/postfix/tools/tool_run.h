// tool_run - runs postmap or postconf and waits for its end
//
// runPostmap and runPostconf take the arguments without the program's name. Standard error is
// collected in any case. postmap's other streams are the caller's choice; a default one leaves
// the tool's own. postconf reads nothing, and what it prints is collected.
//
// Once postmap has used up its processor time, it ends with SIGXCPU, and a line in the diagnostics
// says so. A map of a million records takes a few seconds.
//
// The result holds the raw wait status: see tool_result.h for its judges.
//
// Failures: what Pipe::run raises when the program cannot be started or a stream breaks, and what
// a source or a receiver raises. A receiver's exception leaves the program running, see pipe.h.

#ifndef MAILVEK_POSTFIX_TOOLS_TOOL_RUN_H
#define MAILVEK_POSTFIX_TOOLS_TOOL_RUN_H

#include "process/flags.h"

#include <string>
#include <vector>

namespace orvek::mail::postfix {

struct ToolResult
{
    int status = -1;
    std::string output; // empty unless it was collected
    std::string diagnostics;
};

// Appends the next text; false says that it was the last. Not called again after that.
using TextSource = boost::function<bool(std::vector<char>&)>;

// What a run reads and where its output goes.
struct ToolStreams
{
    static ToolStreams withoutInput();
    static ToolStreams fedBy(TextSource source);

    // Hands each piece of the output to a receiver, or all of it to the result.
    ToolStreams& receivedBy(process::ReceiverFunction outputReceiver);
    ToolStreams& collected();

    int inputMode = process::Unspecified;
    TextSource source;
    process::ReceiverFunction receiver;
    bool collects = false;
    unsigned long processorSeconds = 120; // only for postmap
    boost::function<void()> childSetup;   // runs in the child just before it becomes the program
};

ToolResult runPostmap(std::vector<std::string> const& arguments, ToolStreams const& streams = {});
ToolResult runPostconf(std::vector<std::string> const& arguments);

} // namespace orvek::mail::postfix

#endif
