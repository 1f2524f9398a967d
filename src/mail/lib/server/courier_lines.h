// courier_lines - changes variables in a Courier file
//
// A shell reads these files. A variable is a line that starts with "NAME="; every other line stays
// as it is. A null var ends the list of changes. Only the first 31 count; a longer list is reported
// through messlog2 for each line that none of the 31 matches.

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

// Copies the lines and makes the changes. A variable that is set takes the place of its first line,
// or the end if it had none. A last line without a newline gets one. The caller sees failures by
// the error indicator of to, and by a from that is not at its end; errno is set then.
void copy_changed_lines(FILE* from, FILE* to, EnvChange const* env);

#endif
