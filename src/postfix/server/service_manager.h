// service_manager - starts, stops and queries Postfix, and switches its services
//
// Commands run the init script, whose exit code is the result; 255 means that a signal ended the
// script. The script's environment holds LANG=C and nothing else. It has no input and no time
// limit, and its errors go to the tool's standard output. Only the process table says whether
// Postfix runs: it does when the process of its pid file has a child called "qmgr". A process that
// cannot be looked at does not run.
//
// A service is switched by its entry of master.cf, in a manager that the caller has loaded and will
// store. Reloading Postfix is the caller's task too.
//
// Failures: SystemError when the script cannot be run; what ModuleManager raises.

#ifndef MAILVEK_POSTFIX_SERVER_SERVICE_MANAGER_H
#define MAILVEK_POSTFIX_SERVER_SERVICE_MANAGER_H

#include "lib/host/process_status.h"
#include "postfix/master_cf/module_manager.h"

#include <string>

#include <sys/types.h>

namespace orvek::mail::postfix {

// The number in the pid file of Postfix's master process, whether or not that process exists. -1
// when no file begins with a number.
pid_t getMasterPid();

// A visitor for iterateProcesses with process_stat. data points to the pid_t of the master process.
// 0 for its queue manager, 1 for any other process.
int findQmgrInfo(OrvekProcessInfo const* ppi, void* data);

class ServiceManager
{
public:
    // 0 when Postfix runs, 1 when it still does not after so many seconds. 0 seconds is one look.
    static int statusServer(long timeout);

    static int rcCommand(std::string const& command);
    static int reloadServer();

    // 0 when Postfix runs within five seconds after the script's end, 1 when it does not, and the
    // script's code if that is not 0. A start does nothing when Postfix runs already; a restart
    // always runs the script.
    static int startServer();
    static int restartServer();

    // The script's code, or 0 without a run when Postfix does not run. Does not wait for the
    // processes to end. A master process without a queue manager is left alone.
    static int stopServer();

    // Enabling a service that is in neither file adds the entry of service_modules.h. An existing
    // entry keeps its text, whoever wrote it. Disabling a service that does not run does nothing.
    static void enableSmtpd(ModuleManager& manager);
    static void disableSmtpd(ModuleManager& manager);
    static void enableSmtpsd(ModuleManager& manager);
    static void disableSmtpsd(ModuleManager& manager);
    static void enableSubmission(ModuleManager& manager);
    static void disableSubmission(ModuleManager& manager);
};

} // namespace orvek::mail::postfix

#endif
