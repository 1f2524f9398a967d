#include "commands/command_values.h"

#include "commands/command_texts.h"
#include "postfix/domains/mailname_validators.h"
#include "util/idn.h"

namespace orvek::mail::postfix::mailvek_commands {

namespace po = boost::program_options;

ProgramOptionsHelper commandOptions(char const* command)
{
    CommandTexts const& texts = textsOf(command);
    return {texts.summary, texts.usage_line};
}

void declareText(ProgramOptionsHelper& helper, char const* option, char const* description)
{
    helper.addOptions()(option, po::value<std::string>(), description, true);
}

void declareDomain(ProgramOptionsHelper& helper)
{
    declareText(helper, "domain-name", "domain name");
}

void declareMailname(ProgramOptionsHelper& helper)
{
    declareDomain(helper);
    declareText(helper, "mailname", "mailname");
}

// Deliberate: the description says that it is unused, whatever a command does with it.
void declareDisabledDomain(ProgramOptionsHelper& helper)
{
    helper.addOptions()("mail-domain-disabled,D", "the domain is disabled (currently unused)",
                        false);
}

std::string parseDomain(char const* command, int argc, char** argv)
{
    ProgramOptionsHelper helper = commandOptions(command);
    declareDomain(helper);
    standardOptionsParse(helper, argc, argv);
    return domainOf(helper);
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

std::string addressOf(std::string const& localPart, std::string const& domain)
{
    return localPart + '@' + domain;
}

} // namespace orvek::mail::postfix::mailvek_commands
