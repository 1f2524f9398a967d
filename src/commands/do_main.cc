#include "commands/do_main.h"

#include "commands/usage.h"
#include "mail/lib/mail_auth_style.h"

namespace orvek::mail::postfix::mailvek_commands {

std::map<std::string, CommandHandler> commandMap()
{
    return {
        {"--features", printFeatures},
        {"--list-attachments", listAttachments},
        {"--add-attachment", addAttachment},
        {"--remove-attachment", removeAttachment},
        {"--add-handler", addHandler},
        {"--update-handler", updateHandler},
        {"--remove-handler", removeHandler},
        {"--disable-handler", disableHandler},
        {"--enable-handler", enableHandler},
        {"--check-handler", checkHandler},
        {"--help", usageShortCmd},
        {"-h", usageShortCmd},
        {"--help-commands", usageCommandsCmd},
        {"--help-legacy", usageLegacyCmd},
    };
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
    return command->second(argc - 1, argv + 1);
}
