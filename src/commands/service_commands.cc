#include "commands/command_values.h"
#include "commands/handlers.h"
#include "commands/option_types.h"
#include "commands/postfix_modules.h"
#include "lib/programs/rst_serv.h"
#include "postfix/server/service_manager.h"
#include "util/report_exception.h"

#include <cstdio>
#include <exception>

namespace orvek::mail::postfix::mailvek_commands {

namespace {

using Components = SelectedMailComponents;

// Courier's servers only start and stop together.
constexpr unsigned int courier_components =
    Components::pop3 | Components::imap | Components::pop3s | Components::imaps;
constexpr char courier_service[] = "courier-imap";

constexpr unsigned int smtp_modules = Components::smtp | Components::smtps;

unsigned int selectedComponents(int argc, char** argv)
{
    ProgramOptionsHelper const options = parsedOptions(argc, argv);
    return isGiven(options, "mail-component")
               ? options.values()["mail-component"].as<SelectedMailComponents>().mask
               : Components::all;
}

// 1 when the operation failed or raised, else 0. The command goes on with Courier either way.
int statusOf(int (*operation)())
{
    try {
        return operation() != 0 ? 1 : 0;
    } catch (std::exception const& e) {
        reportException<std::exception>(e);
    } catch (...) {
        reportUntypedException();
    }
    return 1;
}

// The status so far, or 1 if Courier was selected and the action on it failed.
int courierStatus(unsigned int mask, char const* action, int status)
{
    bool const failed = (mask & courier_components) && restart_daemon(courier_service, action) != 0;
    return failed ? 1 : status;
}

// The common part of stop and restart. Deliberate: unlike a start, they do not reload after changed
// services when Postfix itself is selected.
int changeServices(unsigned int mask, bool reload, int (*operation)(), char const* action)
{
    int status = 0;
    if (mask & Components::mta)
        status = statusOf(operation);
    else if (reload)
        ServiceManager::reloadServer();
    return courierStatus(mask, action, status);
}

// Deliberate: -1 for every status of the script but 0. So a stopped Courier shows as an internal
// error too.
int courierAnswer()
{
    return restart_daemon(courier_service, "status");
}

void printCourierStatus(unsigned int mask)
{
    // Deliberate: this order differs from that of the bits.
    constexpr struct
    {
        unsigned int component;
        char const* name;
    } rows[] = {{Components::pop3, "pop3 "},
                {Components::pop3s, "pop3s "},
                {Components::imap, "imap "},
                {Components::imaps, "imaps "}};
    if (!(mask & courier_components))
        return;
    int const status = courierAnswer();
    for (auto const& row : rows) {
        if (!(mask & row.component))
            continue;
        fputs(row.name, stdout);
        print_status(status);
    }
}

// Reloads even when Postfix is stopped, and ignores the panel's setting.
int switchSubmission(void (*change)(ModuleManager& manager))
{
    ModuleManager& manager = ModuleManager::getInstance();
    manager.loadModules(/*force=*/false);
    change(manager);
    if (manager.storeModules(/*force=*/false))
        ServiceManager::reloadServer();
    return 0;
}

int reloadFor(bool reload)
{
    if (reload)
        ServiceManager::reloadServer();
    return 0;
}

} // namespace

int startService(int argc, char** argv)
{
    unsigned int const mask = selectedComponents(argc, argv);
    bool const reload = checkEnablePostfixModules(mask);
    int const status = mask & Components::mta ? statusOf(ServiceManager::startServer) : 0;
    if (reload)
        ServiceManager::reloadServer();
    return courierStatus(mask, "start", status);
}

int stopService(int argc, char** argv)
{
    unsigned int const mask = selectedComponents(argc, argv);
    bool const reload = checkDisablePostfixModules(mask);
    return changeServices(mask, reload, ServiceManager::stopServer, "stop");
}

int restartService(int argc, char** argv)
{
    unsigned int const mask = selectedComponents(argc, argv);
    bool const reload = checkEnablePostfixModules(mask);
    return changeServices(mask, reload, ServiceManager::restartServer, "restart");
}

int reloadService(int argc, char** argv)
{
    unsigned int const mask = selectedComponents(argc, argv);
    int const status = mask & Components::mta ? statusOf(ServiceManager::reloadServer) : 0;
    return courierStatus(mask, "reload", status);
}

// Deliberate: the status is always 0; the answer is in the lines.
int statusService(int argc, char** argv)
{
    unsigned int const mask = selectedComponents(argc, argv);
    if (mask & Components::mta) {
        fputs("mta ", stdout);
        print_status(ServiceManager::statusServer(/*timeout=*/0));
    }
    printCourierStatus(mask);
    return 0;
}

// The commands below have no options and ignore any further words.

int startSMTPD(int, char**)
{
    return reloadFor(checkEnablePostfixModules(smtp_modules));
}

int restartSMTPD(int, char**)
{
    return reloadFor(checkEnablePostfixModules(smtp_modules));
}

int stopSMTPD(int, char**)
{
    return reloadFor(checkDisablePostfixModules(smtp_modules));
}

int statusMTA(int, char**)
{
    print_status(ServiceManager::statusServer(/*timeout=*/0));
    return 0;
}

int startMTA(int, char**)
{
    return ServiceManager::startServer();
}

int stopMTA(int, char**)
{
    return ServiceManager::stopServer();
}

int startIMAP(int, char**)
{
    return restart_daemon(courier_service, "start");
}

int stopIMAP(int, char**)
{
    return restart_daemon(courier_service, "stop");
}

int restartIMAP(int, char**)
{
    return restart_daemon(courier_service, "restart");
}

int statusIMAP(int, char**)
{
    print_status(courierAnswer());
    return 0;
}

int enableSubmission(int, char**)
{
    return switchSubmission(ServiceManager::enableSubmission);
}

int disableSubmission(int, char**)
{
    return switchSubmission(ServiceManager::disableSubmission);
}

} // namespace orvek::mail::postfix::mailvek_commands
