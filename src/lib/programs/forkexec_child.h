// forkexec_child - what the sources of the fork and exec family share
//
// fork_written_out forks after writing what stdio holds unwritten, which a child that leaves by
// exit would write a second time. set_nonblocking says whether it could. replace_program is execv
// on vectors of constant strings: it returns, with errno set, only when the program does not start.
// exit_status is the exit status of a child by its wait status, or -1 for one that did not end by
// exit. report_failed_wait reports a failed waitpid by messlog2, with errno as that left it.

#ifndef MAILVEK_LIB_PROGRAMS_FORKEXEC_CHILD_H
#define MAILVEK_LIB_PROGRAMS_FORKEXEC_CHILD_H

#include <sys/types.h>

pid_t fork_written_out();
[[nodiscard]] bool set_nonblocking(int fd);
void replace_program(char const* path, char const* const* args);
int exit_status(int wait_status);
void report_failed_wait(pid_t child);

#endif
