// libdir - making directories
//
// Failures are reported through messlog2 unless stated. Modes ignore the umask. These functions are
// for directories that an administrator may have moved: a symbolic link to a directory counts as
// the directory, except in make_dir. In trees that others own use lib/beneath/made_directory.h
// instead. A new directory gets its owner and mode through its descriptor, so a link that takes its
// place is not followed.
//
// No command calls these; they are for callers to come: createNestedDirectory, getBaseDir,
// make_dir.

#ifndef MAILVEK_LIB_FILES_LIBDIR_H
#define MAILVEK_LIB_FILES_LIBDIR_H

#include <sys/types.h>

// Makes a directory and its parents, each with this owner and mode. Existing directories are not
// touched. make_dir_rec changes dir_name while it works and restores it at the end; make_dir_p
// works on a copy. Always 0: a directory that cannot be made ends the process with status 1, and
// one that cannot be given to its owner is only reported.
int make_dir_rec(char* dir_name, uid_t uid, gid_t gid, mode_t mode);
int make_dir_p(char const* dir_name, uid_t uid, gid_t gid, mode_t mode);

// Makes one directory and sets its owner and mode, even if it existed. It may vanish during the
// call. A link in its place is a failure. 0 or -1.
int make_dir(char const* dir_name, uid_t dir_uid, gid_t dir_gid, mode_t dir_mode);

// Makes the missing components of path, with mode 0755. 1, or 0 with errno set and no report:
// ENOTDIR when a component is another kind of file.
int createNestedDirectory(char const* path);

// A copy of path up to its last "/", or all of path without one. The caller frees it. Null without
// memory.
[[nodiscard]] char* getBaseDir(char const* path);

#endif
