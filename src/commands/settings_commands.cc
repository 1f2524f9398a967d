#include "commands/command_values.h"
#include "commands/handlers.h"
#include "commands/option_types.h"
#include "mail/lib/server/courier_configure.h"
#include "mail/lib/server/spf_control.h"
#include "postfix/main_cf/main_cf_manager.h"
#include "postfix/server/service_manager.h"
#include "postfix/server/settings_manager.h"
#include "util/errors.h"

#include <boost/lexical_cast.hpp>
#include <boost/logic/tribool.hpp>

#include <iostream>
#include <optional>

namespace orvek::mail::postfix::mailvek_commands {

namespace po = boost::program_options;

namespace {

// Deliberate: the refusal says twice that it is not supported.
[[noreturn]] void refuseShortNames()
{
    throw NotSupportedError("short account-format is not supported for Postfix"
                            " isn't supported");
}

// The value of an option of --update-spf; "-" clears the parameter, no option leaves it.
class SpfValue
{
public:
    SpfValue(ProgramOptionsHelper const& helper, char const* option)
    {
        if (isGiven(helper, option))
            value = textOf(helper, option);
        if (value == "-")
            value->clear();
    }

    char const* get() const { return value ? value->c_str() : nullptr; }

private:
    std::optional<std::string> value;
};

// Deliberate: the command line is not looked at.
int printLimit(char const* parameter)
{
    auto const limit =
        boost::lexical_cast<long>(MainCfManager::getInstance().getStringValue(parameter, false));
    std::cout << limit << std::endl;
    return 0;
}

} // namespace

int setMailParams(int argc, char** argv)
{
    ProgramOptionsHelper helper = commandOptions("--set-mail-params");
    helper.addOptions()                                                                   //
        ("relayclient", "whether to enable mail relaying (disabled by default)", false)   //
        ("smtpauth", "whether to enable SMTP authorization (disabled by default)", false) //
        ("popauth", "whether to enable POP3 before SMTP authorization (disabled by default)",
         false) //
        ("poplock-time", po::value<short>()->default_value(-1), "POP3 authorization validity time",
         false) //
        ("shortnames", "whether to enable short names (legacy, not supported)", false);
    standardOptionsParse(helper, argc, argv);
    bool const relayClient = isGiven(helper, "relayclient");
    bool const smtpAuth = isGiven(helper, "smtpauth");
    bool const popAuth = isGiven(helper, "popauth");
    auto const poplockTime = helper.values()["poplock-time"].as<short>();

    if (isGiven(helper, "shortnames"))
        refuseShortNames();
    if (set_courier_params(relayClient, popAuth, poplockTime, 0) != 0)
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
    ProgramOptionsHelper helper = commandOptions("--update-spf");
    helper.addOptions()                                                   //
        ("spf-behavior", po::value<std::string>(), "SPF behavior", false) //
        ("spf-rules", po::value<std::string>(), "SPF rules", false)       //
        ("spf-guess", po::value<std::string>(), "SPF guess", false)       //
        ("spf-exp", po::value<std::string>(), "SPF exp", false);
    standardOptionsParse(helper, argc, argv);
    SpfValue const behavior(helper, "spf-behavior");
    SpfValue const rules(helper, "spf-rules");
    SpfValue const guess(helper, "spf-guess");
    SpfValue const exp(helper, "spf-exp");

    return update_spf(behavior.get(), rules.get(), guess.get(), exp.get()) != 0 ? 1 : 0;
}

int setMaxLetterSize(int argc, char** argv)
{
    ProgramOptionsHelper helper = commandOptions("--set-max-letter-size");
    helper.addOptions()("size", po::value<long>(), "letter size", true);
    standardOptionsParse(helper, argc, argv);
    long size = helper.values()["size"].as<long>();

    if (size == 0)
        size = SettingsManager::getMailboxSizeLimit();
    MainCfManager::getInstance().replaceStringValue("message_size_limit", std::to_string(size));
    ServiceManager::reloadServer();
    return 0;
}

int getMaxLetterSize(int, char**)
{
    return printLimit("message_size_limit");
}

int getMailboxLimit(int, char**)
{
    return printLimit("mailbox_size_limit");
}

int setAccountsFormat(int argc, char** argv)
{
    ProgramOptionsHelper helper = commandOptions("--set-accounts-format");
    helper.addOptions()("account-format", po::value<ShortnameFormat>(),
                        "Accounts format (currently only compound supported)", true);
    standardOptionsParse(helper, argc, argv);

    if (helper.values()["account-format"].as<ShortnameFormat>().value)
        refuseShortNames();
    // Deliberate: the result is the exit status as it stands, so that -1 becomes 255.
    return set_courier_shortnames_params(0);
}

} // namespace orvek::mail::postfix::mailvek_commands
