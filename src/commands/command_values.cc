#include "commands/command_values.h"

#include "commands/command_table.h"
#include "postfix/domains/mailname_validators.h"
#include "util/idn.h"

namespace orvek::mail::postfix::mailvek_commands {

ProgramOptionsHelper parsedOptions(int argc, char** argv)
{
    Command const& command = commandNamed(argc > 0 ? argv[0] : "");
    ProgramOptionsHelper helper(command.summary, command.usage_line);
    declareOptions(helper, command.options);
    standardOptionsParse(helper, argc, argv);
    return helper;
}

std::string parseDomain(int argc, char** argv)
{
    return domainOf(parsedOptions(argc, argv));
}

bool isGiven(ProgramOptionsHelper const& helper, char const* option)
{
    return helper.values().count(option) != 0;
}

std::string textOf(ProgramOptionsHelper const& helper, char const* option)
{
    return helper.values()[option].as<std::string>();
}

std::string domainOf(ProgramOptionsHelper const& helper, char const* option)
{
    return idn::toAscii(textOf(helper, option));
}

std::string emailOf(ProgramOptionsHelper const& helper, char const* option)
{
    return idn::emailToAscii(textOf(helper, option));
}

std::string localPartOf(ProgramOptionsHelper const& helper, char const* option)
{
    std::string name = textOf(helper, option);
    mailname_validators::mailValidateExc(name, VALIDATE_EMAIL_LOCAL_PART);
    return name;
}

long quotaOf(ProgramOptionsHelper const& helper)
{
    return helper.values()["disk-quota"].as<long>();
}

} // namespace orvek::mail::postfix::mailvek_commands
