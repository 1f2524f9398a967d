// forkexec - runs external programs and collects what they print
//
// A program is named by its path and is not searched for. args is a null-terminated vector
// whose element 0 is the name that the program sees; a list is the same in the form of
// null-terminated arguments, element 0 first unless stated otherwise. The environment and the
// descriptors above 2 are inherited unless stated otherwise. One child at a time; no child has
// a time limit; signals are not touched.
//
// A collected text is a string from malloc that the caller frees. No call raises. A failure to
// fork, to make a pipe or to get memory is reported and ends the process with status 1. A
// program that does not start is an exit status of 255. What stdio holds unwritten is written
// before a fork, so that a child that does not start does not print it again.

#ifndef MAILVEK_LIB_PROGRAMS_FORKEXEC_H
#define MAILVEK_LIB_PROGRAMS_FORKEXEC_H

#include <sys/types.h>

// Starts a child and returns its pid without waiting for it. in, out and err become its
// descriptors 0, 1 and 2: -1 stands for /dev/null, and 0, 1 or 2 in the matching place leaves
// the stream alone. The child has no other descriptors. What keeps it from starting is printed
// on its standard error. The list is cut at 100 entries.
pid_t fork_execv_pipes(int in, int out, int err, char const* path, char const* const* args);
pid_t fork_execl_pipes(int in, int out, int err, char const* path, ...) __attribute__((sentinel));

// Runs a program, which has no descriptors above 2, until it ends or both streams are closed,
// and collects its standard output and its standard error. A stream on which nothing was seen
// to happen gives null. Result: the exit status, or -1 for a child that did not end by exit or
// could not be waited for. A child that has ended is noticed within a second even when another
// process holds its streams open.
int fork_execv_getouterr(char** out, char** err, char const* path, char const* const* args);
int fork_execl_getouterr(char** out, char** err, char const* path, ...) __attribute__((sentinel));

// The same for the standard output alone; the standard error is inherited.
int fork_execv_getout(char** out, char const* path, char const* const* args);
int fork_execl_getout(char** out, char const* path, ...) __attribute__((sentinel));

// The same for a program whose output matters only when it fails: for a result other than 0
// its standard output is printed on standard error and the failure reported by messlog2,
// unless ignore_exit_status is set. The list is cut at 100 entries.
int fork_execv_log(char const* path, char const* const* args, int ignore_exit_status);
int fork_execl_log(char const* path, ...) __attribute__((sentinel));

// Runs a program and collects both its streams in one text. Result: 0 with the text; else the
// exit status, or -1 for a child that did not end by exit or could not be waited for, with a
// null *output and a report by messlog2 that holds the text. The list begins behind element 0,
// which is the path.
int fork_execvv_getoutput(char** output, char const* path, char const* const* args);
int fork_execv_getoutput(char** output, char const* path, ...) __attribute__((sentinel));

// Runs a program whose descriptors 0 and 1 are fd_in and fd_out, which stay open in the
// caller. What it prints on its standard error is reported by messlog2 as it comes. Result: the
// exit status; -1, reported, for fd_in 0 or fd_out 1, for a child that did not end by exit, and
// for one that could not be waited for.
int fork_execv_fd(int fd_in, int fd_out, char const* path, char const* const* args);

// Runs a program on /dev/null and waits for whichever child of the process ends first. Result:
// 1 if that child died by a signal, else 0. The list is cut at 100 entries.
int fork_execv(char const* path, ...) __attribute__((sentinel));

// Runs a program on the caller's streams. Result: the wait status as waitpid gives it, or -1
// when that fails.
int do_exec(char const* program, char const* const* argv);

#endif
