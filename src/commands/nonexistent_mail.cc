#include "commands/nonexistent_mail.h"

#include "commands/command_values.h"
#include "lib/report/product_log.h"
#include "postfix/domains/domain_manager.h"

#include <tuple>

#include <syslog.h>

namespace orvek::mail::postfix::mailvek_commands {

namespace {

std::string optionalText(ProgramOptionsHelper const& helper, char const* option)
{
    return isGiven(helper, option) ? textOf(helper, option) : std::string();
}

bool hasAddress(ProgramOptionsHelper const& helper)
{
    return !optionalText(helper, "email").empty();
}

int setAliasBounce(ProgramOptionsHelper const& helper)
{
    std::vector<std::string> const aliases = {domainOf(helper, "domain-alias-name")};
    AtOnce batch;
    DomainManager::setBounceFor(batch, aliases, optionalText(helper, "phrase"));
    return 0;
}

int setAliasCatchall(ProgramOptionsHelper const& helper)
{
    std::vector<std::string> const aliases = {domainOf(helper, "domain-alias-name")};
    if (!hasAddress(helper))
        throw MissingMandatoryOption("email");
    std::string const address = emailOf(helper, "email");
    AtOnce batch;
    DomainManager::createCatchallFor(batch, aliases, address);
    return 0;
}

} // namespace

void checkNotexistingMailOptions(ProgramOptionsHelper const& helper)
{
    if (isGiven(helper, "set-catchall") && !isGiven(helper, "set-bounce") && hasAddress(helper))
        std::ignore = emailOf(helper, "email");
}

int processNotexistingMailnamesOptions(ProgramOptionsHelper const& helper)
{
    if (isGiven(helper, "set-bounce"))
        return setAliasBounce(helper);
    if (isGiven(helper, "set-catchall"))
        return setAliasCatchall(helper);
    if (isGiven(helper, "set-reject"))
        return 0;
    orvek_log(LOG_ERR, "Action for notexisting mail names is not specified "
                       "(--set-bounce/--set-catchall/--set-reject)");
    return 1;
}

} // namespace orvek::mail::postfix::mailvek_commands
