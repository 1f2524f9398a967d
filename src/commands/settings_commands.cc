#include "commands/command_values.h"
#include "commands/handlers.h"
#include "commands/option_types.h"
#include "mail/lib/server/courier_configure.h"
#include "mail/lib/server/spf_control.h"
#include "postfix/main_cf/main_cf_manager.h"
#include "postfix/main_cf/parameter_names.h"
#include "postfix/server/service_manager.h"
#include "postfix/server/settings_manager.h"
#include "util/errors.h"

#include <boost/lexical_cast.hpp>
#include <boost/logic/tribool.hpp>

#include <iostream>
#include <optional>

namespace orvek::mail::postfix::mailvek_commands {

namespace {

// Deliberate: the text says "not supported" twice.
[[noreturn]] void refuseShortNames()
{
    throw NotSupportedError("short account-format is not supported for Postfix"
                            " isn't supported");
}

// The value of an option of --update-spf. "-" clears the parameter; without the option it stays.
class SpfValue
{
public:
    SpfValue(ProgramOptionsHelper const& options, char const* option)
    {
        if (isGiven(options, option))
            value = textOf(options, option);
        if (value == "-")
            value->clear();
    }

    char const* get() const { return value ? value->c_str() : nullptr; }

private:
    std::optional<std::string> value;
};

int printLimit(char const* parameter)
{
    auto const limit = boost::lexical_cast<long>(
        MainCfManager::getInstance().getStringValue(parameter, /*defaults=*/false));
    std::cout << limit << std::endl;
    return 0;
}

} // namespace

int setMailParams(int argc, char** argv)
{
    ProgramOptionsHelper const options = parsedOptions(argc, argv);
    bool const relayClient = isGiven(options, "relayclient");
    bool const smtpAuth = isGiven(options, "smtpauth");
    bool const popAuth = isGiven(options, "popauth");
    auto const poplockTime = options.values()["poplock-time"].as<short>();

    if (isGiven(options, "shortnames"))
        refuseShortNames();
    if (set_courier_params(relayClient, popAuth, poplockTime, /*shortNames=*/0) != 0)
        return 1;
    if (relayClient)
        SettingsManager::setOpenRelay();
    else
        SettingsManager::setAuthRelay(boost::logic::tribool(smtpAuth),
                                      boost::logic::tribool(popAuth));
    ServiceManager::reloadServer();
    return 0;
}

int updateSPF(int argc, char** argv)
{
    ProgramOptionsHelper const options = parsedOptions(argc, argv);
    SpfValue const behavior(options, "spf-behavior");
    SpfValue const rules(options, "spf-rules");
    SpfValue const guess(options, "spf-guess");
    SpfValue const exp(options, "spf-exp");

    return update_spf(behavior.get(), rules.get(), guess.get(), exp.get()) != 0 ? 1 : 0;
}

int setMaxLetterSize(int argc, char** argv)
{
    ProgramOptionsHelper const options = parsedOptions(argc, argv);
    long size = options.values()["size"].as<long>();

    if (size == 0)
        size = SettingsManager::getMailboxSizeLimit();
    MainCfManager::getInstance().replaceStringValue(parameter::message_size_limit,
                                                    std::to_string(size));
    ServiceManager::reloadServer();
    return 0;
}

int getMaxLetterSize(int, char**)
{
    return printLimit(parameter::message_size_limit);
}

int getMailboxLimit(int, char**)
{
    return printLimit(parameter::mailbox_size_limit);
}

int setAccountsFormat(int argc, char** argv)
{
    ProgramOptionsHelper const options = parsedOptions(argc, argv);

    if (options.values()["account-format"].as<ShortnameFormat>().value)
        refuseShortNames();
    // Deliberate: the result is the exit status, so -1 becomes 255.
    return set_courier_shortnames_params(/*shortNames=*/0);
}

} // namespace orvek::mail::postfix::mailvek_commands
