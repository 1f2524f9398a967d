// libsafe - checks of paths and of what goes into a shell
//
// Nothing here reports.
//
// No command calls these; they are for callers to come: check_shell_arg_nothrow, issubdir.

#ifndef MAILVEK_LIB_TEXT_LIBSAFE_H
#define MAILVEK_LIB_TEXT_LIBSAFE_H

#include <array>

// What a byte means to a shell: '-' nothing, '*' something, 'n' the newline. Ignore the entries
// from 128 on: such bytes are unsafe, as check_shell_arg_nothrow knows.
extern std::array<char, 256> const shell_escape_chars;

// Whether both are directories, neither is a symbolic link itself, and SubDir's real path begins
// with Dir's and a slash. So no directory is below itself or below the root directory. Enters
// both and restores the working directory.
bool issubdir(char const* SubDir, char const* Dir);

// True for null or "".
bool isempty(char const* Checkable);

// 1 for null, for "" and for a string of safe bytes alone; else 0.
int check_shell_arg_nothrow(char const* cmd);

#endif
