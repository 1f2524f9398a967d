// rst_serv - starts, stops and queries the services of the host through their init scripts
//
// An action is a word of init scripts, never null but for the web server: "start", "stop",
// "restart", "reload", "status", "graceful", "force-reload".
//
// Reports go through messlog2. A script that is missing, cannot be looked at or is no regular file
// ends the process with status 1, and so does a panel database that cannot be reached.
//
// No script has a time limit. The waits beside that: up to 82 seconds for a web server that was
// started to say that it runs, and up to 35 for Tomcat to end when its own script could not stop
// it.

#ifndef MAILVEK_LIB_PROGRAMS_RST_SERV_H
#define MAILVEK_LIB_PROGRAMS_RST_SERV_H

// Does action with the service of that name: 0, or a negative number, also for a "status" of a
// service that does not run. Does nothing, and gives 0, while the product configuration has
// NO_RESTART_DAEMON, with whatever value.
//
// A service is its script in /etc/init.d, <daemon> or <daemon>.sh, which must exist: an unknown
// one is reported and gives -1. Four kinds have rules of their own, known by the beginning of
// their names in any case:
//
//   tomcat6              ended by force when it cannot be stopped; the web server is restarted
//                        behind a stop if it runs
//   the value of         null as an action stands for "graceful"; a start waits until the server
//   HTTPD_SERVICE        runs; a stop clears its IPC objects away
//   coldfusion, jrun     the script is the one below the panel's parameter cf_instance_path; the
//                        web server is restarted behind every action but "status" if it runs
[[nodiscard]] int restart_daemon(char const* daemon, char const* action);

// Runs one script, in its own directory and in a session of its own: path, with service as its
// name and action as its argument. Its standard output is discarded, its standard error is the
// tool's, it has no other descriptors. 0, or -1: for an exit status other than 0, which is
// reported only with report_failure and never for "status", for a script that a signal has killed
// or stopped, and for one that could not be started or waited for. "graceful" is "restart" for a
// web server that knows no such thing.
[[nodiscard]] int rc_script_gen(char const* path, char const* service, char const* action,
                                int report_failure);

// The same with the path as the name, and with the report.
[[nodiscard]] int rc_script(char const* path, char const* action);

// Restarts the web server if it runs: the result of that, else 0.
int stop_start_apache();

// Prints what a result of "status" says, as one line: 0 "is running", a negative one "internal
// error", any other "is stopped". -1 for a negative one, else 0.
int print_status(int status);

#endif
