// usage - the three help outputs, and the answer to bad usage
//
// The usage functions print their text on out and end the process with exitCode.

#ifndef MAILVEK_COMMANDS_USAGE_H
#define MAILVEK_COMMANDS_USAGE_H

#include <ostream>
#include <string>

namespace orvek::mail::postfix::mailvek_commands {

[[noreturn]] void usageShort(int exitCode, std::ostream& out);
[[noreturn]] void usageCommands(int exitCode, std::ostream& out);
[[noreturn]] void usageLegacy(int exitCode, std::ostream& out);

// Prints the message, unless it is empty, and the short usage on standard error alone, and ends
// the process with 1.
[[noreturn]] void wrongUsage(std::string const& message);

} // namespace orvek::mail::postfix::mailvek_commands

#endif
