// handlers - one function a command
//
// Each is given the command's name as argv[0] and the command's options behind it, and
// returns the exit status. What it cannot do it raises, or reports and returns as a status.

#ifndef MAILVEK_COMMANDS_HANDLERS_H
#define MAILVEK_COMMANDS_HANDLERS_H

namespace orvek::mail::postfix::mailvek_commands {

using CommandHandler = int (*)(int argc, char** argv);

int addHandler(int argc, char** argv);
int updateHandler(int argc, char** argv);
int removeHandler(int argc, char** argv);
int disableHandler(int argc, char** argv);
int enableHandler(int argc, char** argv);
int checkHandler(int argc, char** argv);
int printFeatures(int argc, char** argv);
int usageShortCmd(int argc, char** argv);
int usageCommandsCmd(int argc, char** argv);
int usageLegacyCmd(int argc, char** argv);

int listAttachments(int argc, char** argv);
int addAttachment(int argc, char** argv);
int removeAttachment(int argc, char** argv);

} // namespace orvek::mail::postfix::mailvek_commands

#endif
