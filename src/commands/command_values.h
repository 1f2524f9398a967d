// command_values - the options of a command line, parsed and read
//
// parsedOptions parses a command line by the command's row in the command table. The readers
// take the value of an option that was given: domainOf and emailOf in ASCII form, localPartOf
// checked, textOf as it was typed.
//
// Failures of the readers: IdnaError, std::invalid_argument for a bad local part, and
// boost::bad_any_cast for an option that was not given or that the command does not have.

#ifndef MAILVEK_COMMANDS_COMMAND_VALUES_H
#define MAILVEK_COMMANDS_COMMAND_VALUES_H

#include "commands/program_options_helper.h"

#include <string>

namespace orvek::mail::postfix::mailvek_commands {

// Declares the options of the command named in argv[0] and parses argv. A bad command line is
// reported and ends the process. Raises std::logic_error for a name that no command has.
ProgramOptionsHelper parsedOptions(int argc, char** argv);

// The domain of a command that takes nothing else.
std::string parseDomain(int argc, char** argv);

bool isGiven(ProgramOptionsHelper const& helper, char const* option);
std::string textOf(ProgramOptionsHelper const& helper, char const* option);
std::string domainOf(ProgramOptionsHelper const& helper, char const* option = "domain-name");
std::string emailOf(ProgramOptionsHelper const& helper, char const* option);
std::string localPartOf(ProgramOptionsHelper const& helper, char const* option = "mailname");
long quotaOf(ProgramOptionsHelper const& helper);

} // namespace orvek::mail::postfix::mailvek_commands

#endif
