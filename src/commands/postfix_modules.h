// postfix_modules - switches the services of Postfix that a set of components names
//
// mask is a set of SelectedMailComponents. Plain SMTP and SMTP over TLS are switched as asked.
// For submission the panel's own setting decides: enabling switches it on or off as the panel
// has it, and disabling leaves it alone while the panel has it on. A set without any of the three
// changes and loads nothing.
//
// Result: whether master.cf was written while Postfix is stopped. Deliberate: a running Postfix
// is not reloaded for the change.
//
// Failures raise, and nothing is written then: what ModuleManager raises, and mError when the
// panel's database cannot be reached. A setting that cannot be read counts as off, with a warning
// on orvek::uerr.

#ifndef MAILVEK_COMMANDS_POSTFIX_MODULES_H
#define MAILVEK_COMMANDS_POSTFIX_MODULES_H

namespace orvek::mail::postfix::mailvek_commands {

bool checkEnablePostfixModules(unsigned int mask);
bool checkDisablePostfixModules(unsigned int mask);

} // namespace orvek::mail::postfix::mailvek_commands

#endif
