// command_values - how the handlers declare and read their options
//
// commandOptions makes the helper of a command out of its texts; declareName and its like add
// the options that many commands share. The readers take the value of an option that was
// given: domainOf and emailOf in ASCII form, localPartOf checked, textOf as it was typed.
//
// Failures of the readers: IdnaError, std::invalid_argument for a bad local part, and
// boost::bad_any_cast for an option that was not given or not declared.

#ifndef MAILVEK_COMMANDS_COMMAND_VALUES_H
#define MAILVEK_COMMANDS_COMMAND_VALUES_H

#include "commands/program_options_helper.h"

#include <string>

namespace orvek::mail::postfix::mailvek_commands {

ProgramOptionsHelper commandOptions(char const* command);

// A mandatory text.
void declareText(ProgramOptionsHelper& helper, char const* option, char const* description);
// --domain-name, and --mailname behind it.
void declareDomain(ProgramOptionsHelper& helper);
void declareMailname(ProgramOptionsHelper& helper);
// --mail-domain-disabled and its short form.
void declareDisabledDomain(ProgramOptionsHelper& helper);

// Declares and parses the one option of a command that only names a domain.
std::string parseDomain(char const* command, int argc, char** argv);

bool isGiven(ProgramOptionsHelper const& helper, char const* option);
std::string textOf(ProgramOptionsHelper const& helper, char const* option);
std::string domainOf(ProgramOptionsHelper const& helper, char const* option = "domain-name");
std::string emailOf(ProgramOptionsHelper const& helper, char const* option);
std::string localPartOf(ProgramOptionsHelper const& helper, char const* option = "mailname");
long quotaOf(ProgramOptionsHelper const& helper);

std::string addressOf(std::string const& localPart, std::string const& domain);

} // namespace orvek::mail::postfix::mailvek_commands

#endif
