// popen_exec - runs a command of the shell and collects its standard output
//
// popen_exec_getoutput gives the output in *dest as a string from malloc that the caller
// frees; it is null when the command could not be run or there was no memory for it, which is
// printed on standard error, and incomplete, which is printed there as well, when there was
// not enough. Result: the exit status, or -1 when there is none.
//
// popen_exec gives the same result. The output matters only when that is not 0, and goes into
// a report by messlog2.

#ifndef MAILVEK_LIB_PROGRAMS_POPEN_EXEC_H
#define MAILVEK_LIB_PROGRAMS_POPEN_EXEC_H

int popen_exec_getoutput(char** dest, char const* cmd);
int popen_exec(char const* cmd);

#endif
