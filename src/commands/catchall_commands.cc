#include "commands/command_values.h"
#include "commands/handlers.h"
#include "postfix/domains/domain_manager.h"

namespace orvek::mail::postfix::mailvek_commands {

namespace po = boost::program_options;

namespace {

// Deliberate: to reject and not to reject mail for unknown addresses are the same here, a domain
// without a catch-all.
int dropCatchall(char const* command, int argc, char** argv)
{
    DomainManager::removeCatchall(parseDomain(command, argc, argv));
    return 0;
}

} // namespace

int setBounce(int argc, char** argv)
{
    ProgramOptionsHelper helper = commandOptions("--set-bounce");
    declareDomain(helper);
    helper.addOptions()("phrase", po::value<std::string>(), "phrase", false);
    standardOptionsParse(helper, argc, argv);
    std::string const phrase = isGiven(helper, "phrase") ? textOf(helper, "phrase") : "";

    DomainManager::setBounce(domainOf(helper), phrase);
    return 0;
}

int setCatchAll(int argc, char** argv)
{
    ProgramOptionsHelper helper = commandOptions("--set-catchall");
    declareDomain(helper);
    declareText(helper, "email", "catchall e-mail address");
    standardOptionsParse(helper, argc, argv);
    std::string const domain = domainOf(helper);

    DomainManager::createCatchall(domain, emailOf(helper, "email"));
    return 0;
}

int setReject(int argc, char** argv)
{
    return dropCatchall("--set-reject", argc, argv);
}

int removeReject(int argc, char** argv)
{
    return dropCatchall("--unset-reject", argc, argv);
}

} // namespace orvek::mail::postfix::mailvek_commands
