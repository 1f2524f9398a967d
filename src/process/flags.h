// flags - what a caller says about the programs of a pipeline, and about the pipeline
//
// A descriptor mode is an int. From 0 on it is an open descriptor: the program uses it, and it
// stays the caller's. Below 0 it is one of DescriptorMode.
//
// Strings and vectors are copied. env and all that the callbacks refer to stay the caller's and
// must outlive the run.

#ifndef MAILVEK_PROCESS_FLAGS_H
#define MAILVEK_PROCESS_FLAGS_H

#include <boost/function.hpp>

#include <string>
#include <utility>
#include <vector>

namespace orvek::process {

enum DescriptorMode
{
    Unspecified = -1,    // nothing chosen: a stage's may be filled from the pipe; else as Inherit
    Inherit = -2,        // the child keeps the tool's own descriptor
    DevNull = -3,        // /dev/null, read-only for stdin, write-only for the others
    Capture = -4,        // a new pipe, whose other end the tool keeps
    MergeWithStdout = -5 // standard error only: the same descriptor as the child's stdout
};

// Whether a wait status has been stored (0 or 1), and that raw status, -1 before.
using ProcessStatus = std::pair<int, int>;

using ReceiverFunction = boost::function<void(std::vector<char> const&)>;

struct CommonFlags
{
    std::string cwd;                    // the child's working directory; empty for unchanged
    char const* const* env = nullptr;   // the environment for execve; null to inherit
    bool closeDescriptors = false;      // the child closes everything from 3 upward
    boost::function<void()> childSetup; // runs in the child just before exec
    // Until exec the child uses the tool's memory, and the tool waits: that saves copying the page
    // tables. childSetup must change nothing in memory then, and allocate only to raise. What it
    // raises must fit into a pipe.
    bool sharesMemory = false;
    int stderrMode = Unspecified;
    ReceiverFunction stderrReceiver; // gets each chunk of a captured standard error
    // Gets the number of a stage and its raw wait status when the stage has ended.
    boost::function<void(unsigned long, int)> exitHandler;
};

struct PipeProcessFlags : CommonFlags
{
};

// One program: the flags, and what to run.
template<class Flags>
struct Parameters : Flags
{
    Parameters() = default;
    // The program and up to nine arguments. They end before the first empty one; put an empty
    // argument into args itself.
    explicit Parameters(
        std::string const& program, std::string const& a1 = std::string(),
        std::string const& a2 = std::string(), std::string const& a3 = std::string(),
        std::string const& a4 = std::string(), std::string const& a5 = std::string(),
        std::string const& a6 = std::string(), std::string const& a7 = std::string(),
        std::string const& a8 = std::string(), std::string const& a9 = std::string())
    {
        args.reserve(10);
        args.push_back(program);
        for (std::string const* const a : {&a1, &a2, &a3, &a4, &a5, &a6, &a7, &a8, &a9}) {
            if (a->empty())
                break;
            args.push_back(*a);
        }
    }

    std::string path;              // the program; empty means that args[0] is the program
    std::vector<std::string> args; // the argument vector, args[0] included
};

struct PipeFlags : CommonFlags
{
    int stdinMode = Unspecified; // of the first stage
    // Fills the buffer, which comes empty, with the next data; false says that this was the
    // last. To return true and leave the buffer empty is an error (SystemError "write").
    boost::function<bool(std::vector<char>&)> stdinSource;
    int stdoutMode = Unspecified;    // of the last stage
    ReceiverFunction stdoutReceiver; // gets each chunk of a captured standard output
};

} // namespace orvek::process

#endif
