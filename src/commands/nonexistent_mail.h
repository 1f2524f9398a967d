// nonexistent_mail - mail to unknown addresses of an alias domain: bounced, caught or rejected
//
// processNotexistingMailnamesOptions carries out the first of --set-bounce, --set-catchall and
// --set-reject that was given, for the alias in --domain-alias-name. --set-reject needs no
// change. Result: the exit status, which is 1, after a report, if none of them was given.
//
// Failures: MissingMandatoryOption for a catch-all without an address, and what the maps raise.
//
// Deliberate: a command without the option --domain-alias-name ends here with
// boost::bad_any_cast for a bounce or a catch-all, after all its other steps.

#ifndef MAILVEK_COMMANDS_NONEXISTENT_MAIL_H
#define MAILVEK_COMMANDS_NONEXISTENT_MAIL_H

#include "commands/program_options_helper.h"

namespace orvek::mail::postfix::mailvek_commands {

// Raises what emailOf raises for a catch-all with a bad address, before anything is changed.
// Deliberate: a catch-all without an address is found by processNotexistingMailnamesOptions.
void checkNotexistingMailOptions(ProgramOptionsHelper const& helper);

int processNotexistingMailnamesOptions(ProgramOptionsHelper const& helper);

} // namespace orvek::mail::postfix::mailvek_commands

#endif
