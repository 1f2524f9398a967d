// courier_lines - changes of variables in the lines of a Courier file
//
// Such a file is read by a shell: a variable is a line "NAME=value" with the name at its very
// beginning, and every other line stays as it is. A list of changes ends at a null var and holds
// at most 31; what is behind those is ignored, which is reported through messlog2 for each line
// that none of them matches.

#ifndef MAILVEK_MAIL_LIB_SERVER_COURIER_LINES_H
#define MAILVEK_MAIL_LIB_SERVER_COURIER_LINES_H

#include <cstdio>

enum EnvAction
{
    ENV_ADD = 0, // set the variable
    ENV_DEL = 1, // remove it
};

struct EnvChange
{
    char const* var;
    EnvAction action;
    char const* value; // null is the empty value
};

// Copies the lines, changed: a variable that is set stands where its first line was, or at the end
// if it had none. A last line without a newline gets one. Failures are for the caller to see: in
// the error indicator of to, and in a from that has not reached its end; errno is set then.
void copy_changed_lines(FILE* from, FILE* to, EnvChange const* env);

#endif
