#include "commands/command_values.h"
#include "commands/handlers.h"
#include "postfix/domains/domain_manager.h"

namespace orvek::mail::postfix::mailvek_commands {

namespace {

// Deliberate: both commands remove the catch-all, so rejecting and not rejecting are the same.
int dropCatchall(int argc, char** argv)
{
    DomainManager::removeCatchall(parseDomain(argc, argv));
    return 0;
}

} // namespace

int setBounce(int argc, char** argv)
{
    ProgramOptionsHelper const options = parsedOptions(argc, argv);
    std::string const phrase = isGiven(options, "phrase") ? textOf(options, "phrase") : "";

    DomainManager::setBounce(domainOf(options), phrase);
    return 0;
}

int setCatchAll(int argc, char** argv)
{
    ProgramOptionsHelper const options = parsedOptions(argc, argv);
    std::string const domain = domainOf(options);

    DomainManager::createCatchall(domain, emailOf(options, "email"));
    return 0;
}

int setReject(int argc, char** argv)
{
    return dropCatchall(argc, argv);
}

int removeReject(int argc, char** argv)
{
    return dropCatchall(argc, argv);
}

} // namespace orvek::mail::postfix::mailvek_commands
