// popen_exec - runs a command of the shell and collects its standard output
//
// popen_exec_getoutput stores the output in *dest; the caller frees it. *dest is null when the
// command could not be run or there was no memory, and incomplete when there was not enough.
// Either is printed on standard error. Returns the exit status, or -1 when there is none.
//
// popen_exec returns the same. A result other than 0 is reported by messlog2 with the output.
//
// No command calls these; they are for callers to come: popen_exec, popen_exec_getoutput.

#ifndef MAILVEK_LIB_PROGRAMS_POPEN_EXEC_H
#define MAILVEK_LIB_PROGRAMS_POPEN_EXEC_H

int popen_exec_getoutput(char** dest, char const* cmd);
int popen_exec(char const* cmd);

#endif
