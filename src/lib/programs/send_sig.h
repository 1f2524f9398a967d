// send_sig - finds processes by name, by a column of ps or by a pid file, and signals them
//
// Use send_sig and is_running for fixed names only: the name goes to a shell as it is, and a
// command longer than 4095 bytes is cut. send_sig signals every process of that name; is_running
// looks for one. Both return the shell's exit status, 0 for found, or -1 when it did not exit.
//
// kill_by_field signals every process whose line of "ps -Aww -o pid,<format>" has needle in it;
// signal 0 does nothing to them. Returns the number of lines, also of processes that could not be
// signalled, or -1 when ps failed. Failures are reported through messlog2. No process below 2 is
// signalled.
//
// get_pid_by_pidfile returns the number at the beginning of the file, or -1 without the file. Any
// other failure is reported and ends the process with status 1. is_running_pid_file returns 0 when
// findProcessByPid finds that process.
//
// No command calls these; they are for callers to come: get_pid_by_pidfile, is_running_pid_file,
// send_sig.

#ifndef MAILVEK_LIB_PROGRAMS_SEND_SIG_H
#define MAILVEK_LIB_PROGRAMS_SEND_SIG_H

#include <sys/types.h>

int send_sig(char const* proc_name, int sig);
int is_running(char const* proc_name);

int kill_by_field(char const* format, char const* needle, int sig);

pid_t get_pid_by_pidfile(char const* pidfile_name);
int is_running_pid_file(char const* pidfile_name);

#endif
