#include "commands/command_values.h"

#include "commands/command_table.h"
#include "lib/names/plain_names.h"
#include "postfix/domains/mailname_validators.h"
#include "util/idn.h"

#include <boost/algorithm/string/split.hpp>
#include <idna.h>

#include <stdexcept>
#include <string_view>
#include <vector>

namespace orvek::mail::postfix::mailvek_commands {

namespace {

// Raises the library's own error for a name that no domain can have.
void requirePlainDomain(std::string const& domain)
{
    if (domain.empty())
        throw idn::IdnaError(IDNA_INVALID_LENGTH);
    if (!is_plain_domain(domain))
        throw idn::IdnaError(IDNA_CONTAINS_NON_LDH);
}

void require(bool isPlain, std::string const& name)
{
    if (!isPlain)
        throw std::invalid_argument(name);
}

std::vector<std::string> namesIn(std::string const& list, std::string_view separators)
{
    std::vector<std::string> names;
    boost::algorithm::split(names, list,
                            [&](char c) { return separators.find(c) != separators.npos; });
    std::erase(names, "");
    return names;
}

} // namespace

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
    std::string domain = idn::toAscii(textOf(helper, option));
    requirePlainDomain(domain);
    return domain;
}

std::string domainListOf(ProgramOptionsHelper const& helper, char const* separators)
{
    std::string list = idn::toAscii(textOf(helper, "domain-name"));
    for (auto const& domain : namesIn(list, separators))
        requirePlainDomain(domain);
    return list;
}

std::string localPartOf(ProgramOptionsHelper const& helper, char const* option)
{
    std::string name = textOf(helper, option);
    mailname_validators::mailValidateExc(name, VALIDATE_EMAIL_LOCAL_PART);
    require(is_plain_local_part(name), name);
    return name;
}

std::string knownLocalPartOf(ProgramOptionsHelper const& helper, char const* option)
{
    std::string name = textOf(helper, option);
    require(is_plain_local_part(name), name);
    return name;
}

std::string localPartListOf(ProgramOptionsHelper const& helper, char const* separators)
{
    std::string list = textOf(helper, "mailname");
    for (auto const& name : namesIn(list, separators))
        require(is_plain_local_part(name), name);
    return list;
}

// Deliberate: a local part alone is an address too: a user of this host.
std::string emailOf(ProgramOptionsHelper const& helper, char const* option)
{
    std::string address = idn::emailToAscii(textOf(helper, option));
    require(is_plain_address(address) || is_plain_local_part(address), address);
    return address;
}

long quotaOf(ProgramOptionsHelper const& helper)
{
    return helper.values()["disk-quota"].as<long>();
}

} // namespace orvek::mail::postfix::mailvek_commands
