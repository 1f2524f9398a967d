// libfile - single files and directories
//
// Except in find_file, the last component of a path is never followed when it is a symbolic link,
// and only regular files with one name are opened or changed. The components before it may be
// links, which only the administrator can make. Modes ignore the umask.
//
// Result: 0 or -1 unless stated. Failures are reported through messlog2.
//
// No command calls these, they are for callers to come: create_file, file_set_perms,
// file_set_user_mode, p_fclose, rename_dir.

#ifndef MAILVEK_LIB_FILES_LIBFILE_H
#define MAILVEK_LIB_FILES_LIBFILE_H

#include <cstddef>
#include <cstdio>

#include <sys/types.h>

// Empties the file or creates it, with mode 0644. create_file only creates it.
int create_empty_file(char const* file);
int create_file(char const* file);

// Does nothing when oDir is missing. nDir must not exist.
int rename_dir(char const* oDir, char const* nDir);

// For a file or a directory. A missing one gives 0.
int file_set_perms(char const* file_name, uid_t file_uid, gid_t file_gid, mode_t file_mode);
// The same with the user's uid and group. Here a missing file is a failure.
int file_set_user_mode(char const* file, char const* user, mode_t mode);

int p_fclose(FILE* stream);

// Sets *target to the first of the null-terminated paths that exists and returns 1. If none does,
// sets it to null and returns 0.
int find_file(char const** target, char const* const* paths);

// Copies the first line, without white space at its ends, into buff, which has room for buflen
// bytes. A line that does not fit with its NUL is a failure, and so is a file larger than 1 MiB. An
// empty file gives 0 and zeroes.
int get_string_from_file(char* buff, std::size_t buflen, char const* file);

#endif
