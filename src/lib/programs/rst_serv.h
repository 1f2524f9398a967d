// rst_serv - starts, stops and queries the services of the host through their init scripts
//
// An action is a word of init scripts: "start", "stop", "restart", "reload", "status", "graceful",
// "force-reload". Only for the web server it may be null.
//
// Reports go through messlog2. A script that is missing, unreadable or not a regular file ends the
// process with status 1. So does a panel database that cannot be reached.
//
// No script has a time limit. The tool waits up to 82 seconds for a started web server to run, and
// up to 35 for Tomcat to end when its own script could not stop it.

#ifndef MAILVEK_LIB_PROGRAMS_RST_SERV_H
#define MAILVEK_LIB_PROGRAMS_RST_SERV_H

// Does action with the service of that name. Returns 0, or a negative number, also for "status" of
// a service that does not run. Does nothing and returns 0 while the product configuration has
// NO_RESTART_DAEMON, with any value.
//
// The script is /etc/init.d/<daemon> or <daemon>.sh. Without one the service is unknown, which is
// reported and gives -1. Four kinds have rules of their own; the beginning of the name, in any
// case, tells the kind:
//
//   tomcat6              ended by force when it cannot be stopped; after a stop the web server is
//                        restarted if it runs
//   the value of         null as an action stands for "graceful"; a start waits until the server
//   HTTPD_SERVICE        runs; a stop clears its IPC objects away
//   coldfusion, jrun     the script is the one below the panel's parameter cf_instance_path; the
//                        web server is restarted after every action but "status" if it runs
[[nodiscard]] int restart_daemon(char const* daemon, char const* action);

// Runs the script at path in its own directory and session, with service as its name and action as
// its argument. Its standard output is dropped, its standard error is the tool's, and it has no
// other descriptors. Returns 0, or -1 for an exit status other than 0, for a script that a signal
// has killed or stopped, and for one that could not be started or waited for. An exit status is
// reported only with report_failure and never for "status". "graceful" becomes "restart" for a web
// server that does not know it.
[[nodiscard]] int rc_script_gen(char const* path, char const* service, char const* action,
                                int report_failure);

// The same with the path as the name, and with the report.
[[nodiscard]] int rc_script(char const* path, char const* action);

// Restarts the web server if it runs: the result of that, else 0.
int stop_start_apache();

// Prints a result of "status" as one line: 0 is "is running", a negative number "internal error",
// any other "is stopped". Returns -1 for a negative number, else 0.
int print_status(int status);

#endif
