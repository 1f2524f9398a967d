#include "commands/command_options.h"

#include "commands/option_types.h"

#include <stdexcept>
#include <string>
#include <vector>

namespace orvek::mail::postfix::mailvek_commands {

namespace po = boost::program_options;

namespace {

// The option library's reader for the type. The caller owns it and passes it on.
po::value_semantic const* semanticOf(OptionType type)
{
    switch (type) {
    case OptionType::flag:
        break;
    case OptionType::text:
        return po::value<std::string>();
    case OptionType::texts:
        return po::value<std::vector<std::string>>();
    case OptionType::number:
        return po::value<long>();
    case OptionType::lock_time:
        return po::value<short>()->default_value(-1);
    case OptionType::prefix_length:
        return po::value<IPv4Mask>();
    case OptionType::format:
        return po::value<ShortnameFormat>();
    case OptionType::components:
        return po::value<SelectedMailComponents>();
    }
    throw std::logic_error("an option of a type without values");
}

} // namespace

void declareOptions(ProgramOptionsHelper& helper, std::span<Option const> list)
{
    auto declare = helper.addOptions();
    for (auto const& option : list) {
        bool const mandatory = option.presence == Presence::mandatory;
        std::string name = option.name;
        if (option.letter != '\0')
            name.append(",").push_back(option.letter);
        if (option.type == OptionType::flag)
            declare(name.c_str(), option.description, mandatory);
        else
            declare(name.c_str(), semanticOf(option.type), option.description, mandatory);
    }
}

void formWhitelistOptions(ProgramOptionsHelper& helper)
{
    declareOptions(helper, options<option::ip_address, option::netmask>);
}

void formNotexistingMailOptions(ProgramOptionsHelper& helper)
{
    declareOptions(helper, options<option::set_catchall, option::alias_catchall_address,
                                   option::set_bounce, option::phrase, option::set_reject>);
}

} // namespace orvek::mail::postfix::mailvek_commands
