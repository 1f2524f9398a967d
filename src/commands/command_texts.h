// command_texts - what the help outputs and the commands' own usage say
//
// Each command has two pairs of texts, side by side in one row: arguments and description for
// the two command lists, summary and usage line for the command's own usage. They differ in
// small ways and neither is computed from the other. The table serves texts only; a command
// is dispatched by the command map alone.

#ifndef MAILVEK_COMMANDS_COMMAND_TEXTS_H
#define MAILVEK_COMMANDS_COMMAND_TEXTS_H

#include <span>
#include <string_view>

namespace orvek::mail::postfix::mailvek_commands {

struct CommandTexts
{
    std::string_view name;   // as shown in help: a short form stands before the long one
    char const* arguments;   // the option synopsis, possibly empty
    char const* description; // a sentence; may hold line breaks followed by eight blanks
    char const* summary;     // what the command does, or null for a command that parses nothing
    char const* usage_line;  // the synopsis with the command's name, or null likewise
};

// The 69 rows in the order of the help outputs.
std::span<CommandTexts const> commandTexts();

// The row with exactly this name. Raises std::logic_error if there is none.
CommandTexts const& textsOf(std::string_view name);

} // namespace orvek::mail::postfix::mailvek_commands

#endif
