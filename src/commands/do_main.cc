#include "commands/do_main.h"

#include "commands/command_table.h"
#include "commands/usage.h"
#include "mail/lib/accounts/mail_auth_style.h"
#include "mail/lib/aliases/panel_names.h"
#include "mail/lib/handlers/handler_parameters.h"
#include "postfix/maps/room.h"

namespace orvek::mail::postfix::mailvek_commands {

std::map<std::string, CommandHandler> commandMap()
{
    std::map<std::string, CommandHandler> map;
    for (auto const& command : commandTable()) {
        map.emplace(command.longName(), command.handler);
        if (!command.shortName().empty())
            map.emplace(command.shortName(), command.handler);
    }
    return map;
}

} // namespace orvek::mail::postfix::mailvek_commands

int do_main(int argc, char** argv)
{
    namespace commands = orvek::mail::postfix::mailvek_commands;

    if (argc < 2)
        commands::wrongUsage("no command specified");

    auto const map = commands::commandMap();
    auto const command = map.find(argv[1]);
    if (command == map.end())
        commands::wrongUsage(std::string("invalid command ") + argv[1]);

    mailAuthDBSelectStyle(MAIL_AUTH_DB_POSTFIX_STYLE);
    orvek::mail::postfix::RoomKeeper const rooms;
    PanelSession const panel;
    HandlerStoreReading const handlers;
    return command->second(argc - 1, argv + 1);
}
