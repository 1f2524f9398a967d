#include "commands/command_values.h"
#include "commands/handlers.h"
#include "commands/option_types.h"
#include "lib/names/plain_names.h"
#include "postfix/main_cf/main_cf_manager.h"
#include "postfix/main_cf/parameter_lists.h"
#include "postfix/main_cf/parameter_names.h"
#include "postfix/main_cf/parameter_values.h"
#include "postfix/server/service_manager.h"
#include "postfix/server/settings_manager.h"
#include "util/idn.h"

#include <algorithm>
#include <cctype>
#include <iterator>
#include <stdexcept>
#include <string>
#include <vector>

namespace orvek::mail::postfix::mailvek_commands {

namespace {

constexpr char blocklist[] = "reject_rbl_client";

template<class Address, class Mask>
std::string IPNetworkStringAdaptor(Address const& address, Mask mask)
{
    return address + '/' + std::to_string(mask);
}

// The network of a whitelist command, as "address/prefix length". It becomes an element of a list,
// so a byte that no address has raises std::invalid_argument.
std::string parseNetwork(int argc, char** argv)
{
    ProgramOptionsHelper const options = parsedOptions(argc, argv);
    auto const mask = options.values()["netmask"].as<IPv4Mask>().value;
    std::string const address = textOf(options, "ip-address");
    constexpr char of_addresses[] = "0123456789abcdefABCDEF.:";
    if (address.empty() || address.find_first_not_of(of_addresses) != std::string::npos)
        throw std::invalid_argument(address);
    return IPNetworkStringAdaptor(address, mask);
}

// The senders of a blacklist command: a domain or an address. A byte that would end the key raises
// std::invalid_argument.
std::string parseSenders(int argc, char** argv)
{
    std::string senders = idn::toAscii(textOf(parsedOptions(argc, argv), "domain-name"));
    auto const at = senders.find('@');
    std::string const before = senders.substr(0, at);
    std::string const after = at == std::string::npos ? "" : senders.substr(at + 1);
    if (senders.empty() || (!before.empty() && !is_plain_local_part(before)) ||
        (!after.empty() && !is_plain_local_part(after)))
        throw std::invalid_argument(senders);
    return senders;
}

// A zone goes into main.cf, where "$" would name a parameter.
bool isZone(std::string const& zone)
{
    return std::ranges::none_of(zone, [](unsigned char c) { return iscntrl(c) || c == '$'; });
}

// The zones of all --maps-zones, in their order. Raises std::invalid_argument for a bad one.
std::vector<std::string> zonesOf(ProgramOptionsHelper const& options)
{
    std::vector<std::string> zones;
    if (!isGiven(options, "maps-zones"))
        return zones;
    for (auto const& value : options.values()["maps-zones"].as<std::vector<std::string>>())
        std::ranges::move(splitSimpleList(value), std::back_inserter(zones));
    std::erase(zones, "");
    for (auto const& zone : zones)
        if (!isZone(zone))
            throw std::invalid_argument(zone);
    return zones;
}

} // namespace

int addWhiteList(int argc, char** argv)
{
    std::string const network = parseNetwork(argc, argv);

    MainCfManager::getInstance().appendStringValue(parameter::my_networks, network);
    ServiceManager::reloadServer();
    return 0;
}

int removeWhiteList(int argc, char** argv)
{
    std::string const network = parseNetwork(argc, argv);

    // The loopback network stays in the list.
    if (!network.starts_with("127."))
        MainCfManager::getInstance().removeListElement(parameter::my_networks, network);
    ServiceManager::reloadServer();
    return 0;
}

int addBadMailFrom(int argc, char** argv)
{
    SettingsManager::addBlackDomain(parseSenders(argc, argv));
    return 0;
}

int removeBadMailFrom(int argc, char** argv)
{
    SettingsManager::removeBlackDomain(parseSenders(argc, argv));
    return 0;
}

int setMapsProtection(int argc, char** argv)
{
    ProgramOptionsHelper const options = parsedOptions(argc, argv);
    std::vector<std::string> const zones = zonesOf(options);
    for (auto const& zone : zones)
        requireLiteral(parameter::client_restrictions, zone);

    MainCfManager const& main_cf = MainCfManager::getInstance();
    std::vector<std::string> clauses = splitCompoundList(
        main_cf.getStringValue(parameter::client_restrictions, /*defaults=*/false));
    std::erase_if(clauses, [](std::string const& clause) {
        return clause.find(blocklist) != std::string::npos;
    });
    for (auto const& zone : zones)
        clauses.push_back(std::string(blocklist) + " " + zone);
    main_cf.replaceStringValue(parameter::client_restrictions, joinList(clauses));
    ServiceManager::reloadServer();
    return 0;
}

} // namespace orvek::mail::postfix::mailvek_commands
