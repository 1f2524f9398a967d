// service_manager - starts, stops and queries Postfix, and switches its services
//
// Commands go through the init script, whose exit code is the result; 255 stands for a script
// that a signal has ended. The script has LANG=C in its environment and nothing else, no input,
// and its errors on the tool's standard output; it has no time limit. Whether Postfix runs is
// judged by the process table alone: it does when the process that its pid file names has a
// child called "qmgr". What cannot be looked at does not run.
//
// Services are switched by an entry of master.cf, in a manager that the caller has loaded and
// will store; reloading Postfix is the caller's too.
//
// Failures: SystemError, when the script cannot be run; ModuleManager's.

#ifndef MAILVEK_POSTFIX_SERVER_SERVICE_MANAGER_H
#define MAILVEK_POSTFIX_SERVER_SERVICE_MANAGER_H

#include "lib/host/process_status.h"
#include "postfix/master_cf/module_manager.h"

#include <string>

#include <sys/types.h>

namespace orvek::mail::postfix {

// The number in the pid file of Postfix's master process, whether or not there is such a process;
// -1 without a file that begins with one.
pid_t getMasterPid();

// A visitor for iterateProcesses with process_stat: 0 for the queue manager of the master process
// whose pid_t is at data, 1 for any other process.
int findQmgrInfo(OrvekProcessInfo const* ppi, void* data);

class ServiceManager
{
public:
    // 0 when Postfix runs, 1 when it does not even after so many seconds. With 0 it is one look.
    static int statusServer(long timeout);

    static int rcCommand(std::string const& command);
    static int reloadServer();

    // 0 when Postfix runs, which it has up to five seconds for after the script's end; the
    // script's code if that is not 0, and 1 for a Postfix that does not come up. A start does
    // nothing when Postfix runs already, while a restart runs the script in any case.
    static int startServer();
    static int restartServer();

    // The script's code; 0 when Postfix does not run, without running it. Does not wait for the
    // processes to end. A master process without a queue manager is left alone.
    static int stopServer();

    // To enable a service that is nowhere is to add it as service_modules.h has it. One that is
    // there keeps its text, whoever wrote it, through both. To disable what is nowhere does
    // nothing.
    static void enableSmtpd(ModuleManager& manager);
    static void disableSmtpd(ModuleManager& manager);
    static void enableSmtpsd(ModuleManager& manager);
    static void disableSmtpsd(ModuleManager& manager);
    static void enableSubmission(ModuleManager& manager);
    static void disableSubmission(ModuleManager& manager);
};

} // namespace orvek::mail::postfix

#endif
