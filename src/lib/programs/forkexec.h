// forkexec - runs external programs and collects what they print
//
// path names the program; PATH is not searched. args is a null-terminated vector, and its element
// 0 is the name that the program sees. A list is the same as arguments, with a null at the end.
// The child inherits the environment and, unless stated otherwise, the descriptors above 2. One
// child runs at a time, without a time limit. Signals are not touched.
//
// The caller frees a collected text. No function raises. A failure to fork, to make a pipe or to
// get memory is reported and ends the process with status 1. The exit status is 255 when a program
// does not start. stdio is flushed before a fork, so that no child prints pending text again.
//
// No command calls these; they are for callers to come: do_exec, fork_execl_getouterr,
// fork_execl_log, fork_execl_pipes, fork_execv, fork_execv_fd, fork_execv_getoutput,
// fork_execvv_getoutput.

#ifndef MAILVEK_LIB_PROGRAMS_FORKEXEC_H
#define MAILVEK_LIB_PROGRAMS_FORKEXEC_H

#include <sys/types.h>

// Starts a child and returns its pid at once. in, out and err become its descriptors 0, 1 and 2.
// -1 stands for /dev/null; 0, 1 or 2 in its own place leaves the stream alone. The child has no
// other descriptors. It prints on its standard error why it cannot start. The list is cut at 100
// entries.
pid_t fork_execv_pipes(int in, int out, int err, char const* path, char const* const* args);
pid_t fork_execl_pipes(int in, int out, int err, char const* path, ...) __attribute__((sentinel));

// Runs a program without descriptors above 2 and collects its standard output and standard error
// until it ends or both streams are closed. A stream without any event gives null. Returns the
// exit status, or -1 for a child that did not end by exit or could not be waited for. The end of
// the child is noticed within a second even when another process holds its streams open.
int fork_execv_getouterr(char** out, char** err, char const* path, char const* const* args);
int fork_execl_getouterr(char** out, char** err, char const* path, ...) __attribute__((sentinel));

// The same for standard output alone. The child inherits standard error.
int fork_execv_getout(char** out, char const* path, char const* const* args);
int fork_execl_getout(char** out, char const* path, ...) __attribute__((sentinel));

// The same for a program whose output matters only when it fails. For a result other than 0, and
// unless ignore_exit_status is set, its standard output is printed on standard error and messlog2
// reports the failure. The list is cut at 100 entries.
int fork_execv_log(char const* path, char const* const* args, int ignore_exit_status);
int fork_execl_log(char const* path, ...) __attribute__((sentinel));

// Runs a program and collects both its streams in one text. Returns 0 with the text. Otherwise
// *output is null, messlog2 reports the text, and the result is the exit status, or -1 for a child
// that did not end by exit or could not be waited for. The path is element 0; the list begins with
// element 1.
int fork_execvv_getoutput(char** output, char const* path, char const* const* args);
int fork_execv_getoutput(char** output, char const* path, ...) __attribute__((sentinel));

// Runs a program with fd_in and fd_out as its descriptors 0 and 1; both stay open in the caller.
// messlog2 reports its standard error piece by piece. Returns the exit status, or -1, reported,
// for fd_in 0 or fd_out 1, for a child that did not end by exit, and for one that could not be
// waited for.
int fork_execv_fd(int fd_in, int fd_out, char const* path, char const* const* args);

// Runs a program on /dev/null and waits for the first child of the process to end, whichever it
// is. Returns 1 if that child died by a signal, else 0. The list is cut at 100 entries.
int fork_execv(char const* path, ...) __attribute__((sentinel));

// Runs a program on the caller's streams. Returns the wait status, or -1 when waitpid fails.
int do_exec(char const* program, char const* const* argv);

#endif
