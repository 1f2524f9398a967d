// postfix_modules - switches the services of Postfix that a set of components names
//
// mask is a set of SelectedMailComponents. Plain SMTP and SMTP over TLS are switched as asked;
// for submission the panel's own setting decides: to enable is to switch it as the panel has it,
// off as well, and to disable leaves it alone while the panel has it on. Without one of the three
// in the set nothing is done, and nothing loaded.
//
// Result: whether master.cf was written while Postfix does not run. Deliberate: a Postfix that
// runs is not reloaded for it.
//
// Failures raise: those of ModuleManager, mError when the panel's database cannot be reached.
// Nothing is written then. A setting that cannot be read is a warning on orvek::uerr, and off.

#ifndef MAILVEK_COMMANDS_POSTFIX_MODULES_H
#define MAILVEK_COMMANDS_POSTFIX_MODULES_H

namespace orvek::mail::postfix::mailvek_commands {

bool checkEnablePostfixModules(unsigned int mask);
bool checkDisablePostfixModules(unsigned int mask);

} // namespace orvek::mail::postfix::mailvek_commands

#endif
