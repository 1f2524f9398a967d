// child_report - how a child that fails before exec tells its parent why
//
// The report is a stream of records, each a tag of four bytes, a text and a NUL byte, without
// lengths: "ET: " the type of the exception, "EM: " its what(), and for the type "SystemError"
// "EC: " the error number in decimal. Nothing at all means that exec has closed the pipe.
//
// Writing has no failures that anyone could be told of; none are reported. readReport raises
// SystemError "control pipe read", or "close" when the read end cannot be closed.

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

// Reads to the end of file and closes the read end, keeping errno. A record of no known tag is
// passed on to std::clog.
ChildReport readReport(FdOwner& readEnd);

// Raises what a report with a type stands for: SystemError with message and code (the current
// errno for code 0), std::runtime_error with the message, std::exception without it, and
// std::bad_exception for any other type.
[[noreturn]] void raiseReported(ChildReport const& report);

} // namespace orvek::process

#endif
