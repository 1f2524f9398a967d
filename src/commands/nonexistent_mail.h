// nonexistent_mail - the options of the alias commands for mail to unknown addresses
//
// processNotexistingMailnamesOptions carries out the first of --set-bounce, --set-catchall and
// --set-reject that was given, for the alias in --domain-alias-name, and returns the exit
// status: 1, behind a report, when none was. To reject is what happens anyway.
//
// Deliberate: a command that declares no --domain-alias-name ends here with boost::bad_any_cast
// for a bounce or a catch-all, behind all that it did before.
//
// Failures: MissingMandatoryOption for a catch-all without an address, and what the maps raise.

#ifndef MAILVEK_COMMANDS_NONEXISTENT_MAIL_H
#define MAILVEK_COMMANDS_NONEXISTENT_MAIL_H

#include "commands/program_options_helper.h"

namespace orvek::mail::postfix::mailvek_commands {

int processNotexistingMailnamesOptions(ProgramOptionsHelper const& helper);

} // namespace orvek::mail::postfix::mailvek_commands

#endif
