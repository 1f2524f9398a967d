// child_report - how a child that fails before exec tells its parent why
//
// The report is a stream of records. Each is a tag of four bytes, a text and a NUL byte: "ET: " is
// the type of the exception, "EM: " its what(), and "EC: " the error number of a SystemError in
// decimal. An empty report means that exec has closed the pipe.
//
// Failures to write are ignored: no one could be told. readReport raises SystemError "control pipe
// read", or "close" when the read end cannot be closed.

#ifndef MAILVEK_PROCESS_CHILD_REPORT_H
#define MAILVEK_PROCESS_CHILD_REPORT_H

#include "process/fd_owner.h"

#include <optional>
#include <string>

namespace orvek::process {

// Writes the records of type and message; nothing for a descriptor below 0.
void writeException(int fd, char const* type, char const* message);
// Writes the record of the error number.
void writeErrorCode(int fd, int code);

struct ChildReport
{
    std::optional<std::string> type; // not set: the child has reported no failure
    std::string message;
    int code = 0;
};

// Reads to the end of file and closes the read end; keeps errno. A record with an unknown tag goes
// to std::clog.
ChildReport readReport(FdOwner& readEnd);

// Raises the exception of a report with a type: SystemError with message and code (code 0: the
// current errno), std::runtime_error with the message, std::exception without it, or
// std::bad_exception for any other type.
[[noreturn]] void raiseReported(ChildReport const& report);

} // namespace orvek::process

#endif
