#include "commands/command_values.h"
#include "commands/handlers.h"
#include "commands/option_types.h"
#include "postfix/main_cf/main_cf_manager.h"
#include "postfix/main_cf/parameter_lists.h"
#include "postfix/main_cf/parameter_names.h"
#include "postfix/main_cf/parameter_values.h"
#include "postfix/server/service_manager.h"
#include "postfix/server/settings_manager.h"

#include <algorithm>
#include <iterator>
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

// The network that a whitelist command names, as "address/prefix length".
std::string parseNetwork(int argc, char** argv)
{
    ProgramOptionsHelper const options = parsedOptions(argc, argv);
    auto const mask = options.values()["netmask"].as<IPv4Mask>().value;
    return IPNetworkStringAdaptor(textOf(options, "ip-address"), mask);
}

// The zones of all --maps-zones, in their order.
std::vector<std::string> zonesOf(ProgramOptionsHelper const& options)
{
    std::vector<std::string> zones;
    if (!isGiven(options, "maps-zones"))
        return zones;
    for (auto const& value : options.values()["maps-zones"].as<std::vector<std::string>>())
        std::ranges::move(splitSimpleList(value), std::back_inserter(zones));
    std::erase(zones, "");
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
    SettingsManager::addBlackDomain(parseDomain(argc, argv));
    return 0;
}

int removeBadMailFrom(int argc, char** argv)
{
    SettingsManager::removeBlackDomain(parseDomain(argc, argv));
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
