// child_start - the child's way from fork to exec
//
// The child writes a failure to the report pipe, and ProcessLaunch::waitExec raises it in the
// parent. The child leaves by exit: 67 for a SystemError, 66 for any other standard exception, 65
// for anything else.

#ifndef MAILVEK_PROCESS_CHILD_START_H
#define MAILVEK_PROCESS_CHILD_START_H

#include "process/fd_owner.h"

#include <boost/function.hpp>

namespace orvek::process {

class ProcessLaunch;

// The descriptors that become the child's 0, 1 and 2; -1 where it keeps the parent's.
struct ChildStreams
{
    FdOwner in;
    FdOwner out;
    FdOwner err;
};

// What the child is to become; the fields are the arguments of ProcessLaunch.
struct ChildProgram
{
    char const* const* argv;
    char const* path;
    char const* cwd;
    char const* const* env;
    bool closeDescriptors;
    bool searchPath;
    bool newSession;
    boost::function<void()> const& childSetup;
};

[[noreturn]] void startChild(ProcessLaunch& launch, ChildStreams& streams,
                             ChildProgram const& program);

} // namespace orvek::process

#endif
