#include "postfix/server/service_manager.h"

#include "postfix/server/service_modules.h"
#include "process/process_launch.h"

#include <cstring>
#include <fstream>

#include <sys/wait.h>
#include <unistd.h>

namespace orvek::mail::postfix {

namespace {

constexpr char init_script[] = "/etc/init.d/postfix";
constexpr char master_pid_file[] = "/var/spool/postfix/pid/master.pid";

constexpr int killed = 255;
constexpr long wait_after_start = 5;

bool hasQmgr(pid_t master)
{
    return iterateProcesses(process_stat, findQmgrInfo, &master) == 0;
}

bool runs()
{
    pid_t const master = getMasterPid();
    return master != -1 && hasQmgr(master);
}

// Returns 0 as soon as Postfix runs, 1 if it does not run after that many seconds.
int awaitServer(long seconds)
{
    for (long waited = 0; !runs(); ++waited) {
        if (waited >= seconds)
            return 1;
        sleep(1);
    }
    return 0;
}

// Runs a script that starts Postfix, and waits for that.
int bringUp(char const* command)
{
    int const code = ServiceManager::rcCommand(command);
    return code != 0 ? code : awaitServer(wait_after_start);
}

SmtpdModule smtpsdModule()
{
    SmtpdModule module;
    module.name = "smtps";
    module.command.push_back("-o smtpd_tls_wrappermode=yes");
    return module;
}

void enable(ModuleInfo const& module, ModuleManager& manager)
{
    if (manager.hasModule(module.name, module.type, boost::indeterminate))
        manager.enableModule(module.name, module.type);
    else
        manager.addModule(module, /*enabled=*/true);
}

void disable(ModuleInfo const& module, ModuleManager& manager)
{
    manager.disableModule(module.name, module.type);
}

} // namespace

pid_t getMasterPid()
{
    std::ifstream file(master_pid_file);
    pid_t pid = -1;
    return file >> pid ? pid : -1;
}

int findQmgrInfo(OrvekProcessInfo const* ppi, void* data)
{
    pid_t const master = *static_cast<pid_t const*>(data);
    bool const named = ppi->procname && strcmp(ppi->procname, "qmgr") == 0;
    return ppi->ppid == master && named ? 0 : 1;
}

int ServiceManager::statusServer(long timeout)
{
    return awaitServer(timeout);
}

int ServiceManager::rcCommand(std::string const& command)
{
    char const* const argv[] = {init_script, command.c_str(), nullptr};
    char const* const env[] = {"LANG=C", nullptr};
    process::ProcessLaunch launch({.argv = argv,
                                   .path = init_script,
                                   .env = env,
                                   .stdinMode = process::DevNull,
                                   .stderrMode = process::MergeWithStdout});
    launch.waitExec();
    int const status = launch.waitExit();
    return WIFEXITED(status) ? WEXITSTATUS(status) : killed;
}

int ServiceManager::reloadServer()
{
    return rcCommand("reload");
}

int ServiceManager::startServer()
{
    return runs() ? 0 : bringUp("start");
}

int ServiceManager::restartServer()
{
    return bringUp("restart");
}

int ServiceManager::stopServer()
{
    return runs() ? rcCommand("stop") : 0;
}

void ServiceManager::enableSmtpd(ModuleManager& manager)
{
    enable(SmtpdModule(), manager);
}

void ServiceManager::disableSmtpd(ModuleManager& manager)
{
    disable(SmtpdModule(), manager);
}

void ServiceManager::enableSmtpsd(ModuleManager& manager)
{
    enable(smtpsdModule(), manager);
}

void ServiceManager::disableSmtpsd(ModuleManager& manager)
{
    disable(smtpsdModule(), manager);
}

void ServiceManager::enableSubmission(ModuleManager& manager)
{
    enable(SubmissionModule(), manager);
}

void ServiceManager::disableSubmission(ModuleManager& manager)
{
    disable(SubmissionModule(), manager);
}

} // namespace orvek::mail::postfix
