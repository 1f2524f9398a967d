// child_start - the child's way from fork to exec
//
// The child writes a failure to the report pipe, and ProcessLaunch::waitExec raises it in the
// parent. The child leaves by exit, or by _exit when it shares the parent's memory: 67 for a
// SystemError, 66 for any other standard exception, 65 for anything else.

#ifndef MAILVEK_PROCESS_CHILD_START_H
#define MAILVEK_PROCESS_CHILD_START_H

#include "process/fd_owner.h"

namespace orvek::process {

class ProcessLaunch;
struct LaunchOptions;

// The descriptors that become the child's 0, 1 and 2; -1 where it keeps the parent's.
struct ChildStreams
{
    FdOwner in;
    FdOwner out;
    FdOwner err;
};

[[noreturn]] void startChild(ProcessLaunch const& launch, ChildStreams const& streams,
                             LaunchOptions const& options);

} // namespace orvek::process

#endif
