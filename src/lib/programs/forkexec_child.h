// forkexec_child - what the sources of the fork and exec family share
//
// fork_written_out flushes stdio and forks: a child that leaves by exit would write pending text a
// second time. set_nonblocking returns whether it succeeded. replace_program is execv for constant
// strings; it returns, with errno set, only when the program does not start. exit_status turns a
// wait status into the exit status, or -1 for a child that did not end by exit. report_failed_wait
// reports a failed waitpid by messlog2, with waitpid's errno.
//
// No command calls these; they are for callers to come: report_failed_wait.

#ifndef MAILVEK_LIB_PROGRAMS_FORKEXEC_CHILD_H
#define MAILVEK_LIB_PROGRAMS_FORKEXEC_CHILD_H

#include <sys/types.h>

pid_t fork_written_out();
[[nodiscard]] bool set_nonblocking(int fd);
void replace_program(char const* path, char const* const* args);
int exit_status(int wait_status);
void report_failed_wait(pid_t child);

#endif
