// util_exec - runs the product's own utilities, and programs by their path
//
// util_exec and util_exec_args run a utility of admin/bin under the product's root; its name must
// not have a slash. util_libexec runs a program of /usr/lib64/orvek-9.0. In the list forms and in
// path_exec the path is element 0, and the caller passes the arguments after it. util_exec_args
// takes the whole vector. A list is cut at 100 entries with the path, a path at 4095 bytes.
//
// Results and reports are those of fork_execv_log: the exit status, or -1. messlog2 has reported
// a result other than 0. A name with a slash is reported and gives -1.
//
// No command calls these; they are for callers to come: path_exec, path_exec_raw, util_exec,
// util_exec_args, util_libexec.

#ifndef MAILVEK_LIB_PROGRAMS_UTIL_EXEC_H
#define MAILVEK_LIB_PROGRAMS_UTIL_EXEC_H

#include <cstdarg>

int util_exec(char const* util, ...) __attribute__((sentinel));
int util_exec_args(char const* util, char const* const* args);
int util_libexec(char const* util, ...) __attribute__((sentinel));
int path_exec(char const* path, ...) __attribute__((sentinel));
int path_exec_raw(char const* path, va_list args);

#endif
