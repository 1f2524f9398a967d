// command_values - the options of a command line, parsed and read
//
// parsedOptions parses a command line by the command's row in the command table. The readers
// take the value of an option that was given. Those of names let only plain names pass, see
// lib/names/plain_names.h; textOf gives the value as it was typed.
//
// Failures of the readers: IdnaError for a domain, std::invalid_argument with the name as its
// text for any other name, and boost::bad_any_cast for an option that was not given or that the
// command does not have.

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
// A domain in ASCII form.
std::string domainOf(ProgramOptionsHelper const& helper, char const* option = "domain-name");
// The list of domains in --domain-name, in ASCII form, separated by any of the separators.
std::string domainListOf(ProgramOptionsHelper const& helper, char const* separators);
// A local part that may become a mailname: ".." is refused in it.
std::string localPartOf(ProgramOptionsHelper const& helper, char const* option = "mailname");
// A local part that is in use already.
std::string knownLocalPartOf(ProgramOptionsHelper const& helper, char const* option = "mailname");
// The list of local parts in --mailname.
std::string localPartListOf(ProgramOptionsHelper const& helper, char const* separators);
// An address, with its domain in ASCII form.
std::string emailOf(ProgramOptionsHelper const& helper, char const* option);
long quotaOf(ProgramOptionsHelper const& helper);

} // namespace orvek::mail::postfix::mailvek_commands

#endif
