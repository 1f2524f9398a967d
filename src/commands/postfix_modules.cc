#include "commands/postfix_modules.h"

#include "commands/option_types.h"
#include "mysql/misc_params.h"
#include "postfix/server/service_manager.h"

namespace orvek::mail::postfix::mailvek_commands {

namespace {

using Components = SelectedMailComponents;

constexpr unsigned int modules = Components::smtp | Components::smtps | Components::submission;

using Switch = void (*)(ModuleManager& manager);

// The action for each selected service.
struct Switches
{
    Switch smtp;
    Switch smtps;
    Switch submission_on; // when the panel has submission on; null for no action
    Switch submission_off;
};

constexpr Switches enabling = {ServiceManager::enableSmtpd, ServiceManager::enableSmtpsd,
                               ServiceManager::enableSubmission, ServiceManager::disableSubmission};
constexpr Switches disabling = {ServiceManager::disableSmtpd, ServiceManager::disableSmtpsd,
                                nullptr, ServiceManager::disableSubmission};

bool panelHasSubmission()
{
    mysql::Connection connection(/*connect_now=*/true);
    return restore::getBoolMiscParamSafe("message_submission", connection);
}

bool switchModules(unsigned int mask, Switches const& switches)
{
    if (!(mask & modules))
        return false;
    ModuleManager& manager = ModuleManager::getInstance();
    manager.loadModules(/*force=*/false);
    if (mask & Components::smtp)
        switches.smtp(manager);
    if (mask & Components::smtps)
        switches.smtps(manager);
    if (mask & Components::submission) {
        Switch const change =
            panelHasSubmission() ? switches.submission_on : switches.submission_off;
        if (change)
            change(manager);
    }
    return manager.storeModules(/*force=*/false) &&
           ServiceManager::statusServer(/*timeout=*/0) != 0;
}

} // namespace

bool checkEnablePostfixModules(unsigned int mask)
{
    return switchModules(mask, enabling);
}

bool checkDisablePostfixModules(unsigned int mask)
{
    return switchModules(mask, disabling);
}

} // namespace orvek::mail::postfix::mailvek_commands
