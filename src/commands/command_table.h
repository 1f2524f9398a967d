// command_table - all commands, one row each
//
// A row has the command's name, its handler, its options and two pairs of texts: arguments and
// description for the two command lists, summary and usage line for the command's own usage. The
// pairs differ in small ways and neither is computed from the other. The command map, the help
// outputs and the parsing of a command line come from the table. tools/check-help checks the manual
// page and the completion against it.

#ifndef MAILVEK_COMMANDS_COMMAND_TABLE_H
#define MAILVEK_COMMANDS_COMMAND_TABLE_H

#include "commands/command_options.h"
#include "commands/handlers.h"

#include <span>
#include <string_view>

namespace orvek::mail::postfix::mailvek_commands {

struct Command
{
    std::string_view name;           // as shown in help: "--help", or "-h, --help"
    CommandHandler handler;          //
    std::span<Option const> options; // in the order of declaration; none: it parses nothing
    char const* arguments;           // the option synopsis, possibly empty
    char const* description;         // a sentence; may hold line breaks followed by eight blanks
    char const* summary;             // what the command does, or null if it parses nothing
    char const* usage_line;          // the synopsis with the command's name, or null likewise

    constexpr std::string_view longName() const { return name.substr(name.find("--")); }
    // Empty for a command without a short form.
    constexpr std::string_view shortName() const
    {
        return name.starts_with("--") ? std::string_view() : name.substr(0, name.find(", "));
    }
};

// The rows in the order of the help outputs.
std::span<Command const> commandTable();

// The row of the command with this long or short name. Raises std::logic_error if there is none.
Command const& commandNamed(std::string_view name);

} // namespace orvek::mail::postfix::mailvek_commands

#endif
