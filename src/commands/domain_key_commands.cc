#include "commands/command_values.h"
#include "commands/handlers.h"
#include "mail/lib/server/domain_keys.h"
#include "util/idn.h"

namespace orvek::mail::postfix::mailvek_commands {

// Both commands take lists, and a bad name must not stop the good ones. So the names are checked
// later, where they become directories.

int setDomainKey(int argc, char** argv)
{
    ProgramOptionsHelper const options = parsedOptions(argc, argv);
    std::string const domains = idn::toAscii(textOf(options, "domain-name"));
    std::string const file = textOf(options, "file-name");

    return take_over_domain_key(domains.c_str(), file.c_str()) == -1 ? 1 : 0;
}

int removeDomainKey(int argc, char** argv)
{
    std::string const domains = idn::toAscii(textOf(parsedOptions(argc, argv), "domain-name"));

    return remove_domain_key(domains.c_str()) == -1 ? 1 : 0;
}

} // namespace orvek::mail::postfix::mailvek_commands
