#include "commands/usage.h"

#include "commands/command_table.h"
#include "commands/handlers.h"
#include "lib/report/visible.h"

#include <algorithm>
#include <cstdlib>
#include <iomanip>
#include <iostream>

namespace orvek::mail::postfix::mailvek_commands {

namespace {

size_t longestName()
{
    size_t longest = 0;
    for (auto const& row : commandTable())
        longest = std::max(longest, row.name.size());
    return longest;
}

} // namespace

void usageShort(int exitCode, std::ostream& out)
{
    out << "Usage: mailvek <COMMAND> <COMMAND OPTIONS...>\n"
           "\t for a complete list of commands use ``mailvek --help-commands''\n"
           "\t for help on syntax for a particular command use ``mailvek <COMMAND> --help''\n"
           "\t for legacy complete help use ``mailvek --help-legacy''\n";
    exit(exitCode);
}

void usageCommands(int exitCode, std::ostream& out)
{
    auto const width = static_cast<int>(longestName() + 2);
    out << "Mailvek commands:\n" << std::left;
    for (auto const& row : commandTable())
        out << std::setw(width) << row.name << row.description << '\n';
    exit(exitCode);
}

void usageLegacy(int exitCode, std::ostream& out)
{
    // Deliberate: the first line ends in a blank.
    out << "Usage: mailvek [OPTIONS]... \n";
    for (auto const& row : commandTable())
        out << "  " << row.name << ' ' << row.arguments << "\n        " << row.description << '\n';
    exit(exitCode);
}

void wrongUsage(std::string const& message)
{
    if (!message.empty())
        std::cerr << "Error: " << visible(message) << std::endl;
    usageShort(1, std::cerr);
}

int usageShortCmd(int, char**)
{
    usageShort(0, std::cout);
}

int usageCommandsCmd(int, char**)
{
    usageCommands(0, std::cout);
}

int usageLegacyCmd(int, char**)
{
    usageLegacy(0, std::cout);
}

} // namespace orvek::mail::postfix::mailvek_commands
