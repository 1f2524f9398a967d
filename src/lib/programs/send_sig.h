// send_sig - finds processes by name, by a column of ps or by a pid file, and signals them
//
// send_sig sends a signal to every process of that name, is_running tells whether there is one:
// the shell's exit status, 0 for found, or -1 when its end was not seen. The name goes to the shell
// as it stands, and a command longer than 4095 bytes is cut: for fixed names.
//
// kill_by_field sends a signal to every process whose line of "ps -Aww -o pid,<format>" holds
// needle; signal 0 touches none. Result: how many lines there were, those whose process could not
// be signalled included, or -1 when ps failed; what failed is reported through messlog2. No
// process below 2 is signalled.
//
// get_pid_by_pidfile gives the number at the beginning of the file, or -1 when the file is
// missing. Any other failure is reported and ends the process with status 1. is_running_pid_file
// gives 0 when there is a process of that number, see findProcessByPid for which are found.

#ifndef MAILVEK_LIB_PROGRAMS_SEND_SIG_H
#define MAILVEK_LIB_PROGRAMS_SEND_SIG_H

#include <sys/types.h>

int send_sig(char const* proc_name, int sig);
int is_running(char const* proc_name);

int kill_by_field(char const* format, char const* needle, int sig);

pid_t get_pid_by_pidfile(char const* pidfile_name);
int is_running_pid_file(char const* pidfile_name);

#endif
