// do_main - finds the command and runs its handler
//
// Result: the handler's exit status. A missing or unknown command is reported on standard error
// and ends the process with status 1. What a handler raises goes to the caller. Nothing is
// opened, started or read before the handler runs.

#ifndef MAILVEK_COMMANDS_DO_MAIN_H
#define MAILVEK_COMMANDS_DO_MAIN_H

#include "commands/handlers.h"

#include <map>
#include <string>

int do_main(int argc, char** argv);

namespace orvek::mail::postfix::mailvek_commands {

// The handler of each command name, from the command table. A legacy short form is a second key
// for the handler of the long form.
std::map<std::string, CommandHandler> commandMap();

} // namespace orvek::mail::postfix::mailvek_commands

#endif
