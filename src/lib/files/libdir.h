// libdir - making directories
//
// Failures are reported through messlog2 unless stated. Modes ignore the umask. For directories
// that an administrator may have moved: a symbolic link to one counts as the directory, except for
// the one that make_dir treats. In trees that others own use lib/beneath/made_directory.h instead.
// What is made gets its owner and mode by its descriptor, so that no link which takes its place is
// followed.
//
// No command calls these; they are for callers to come: createNestedDirectory, getBaseDir,
// make_dir.

#ifndef MAILVEK_LIB_FILES_LIBDIR_H
#define MAILVEK_LIB_FILES_LIBDIR_H

#include <sys/types.h>

// Makes a directory and those above it, each with this owner and mode; what exists is not
// touched. dir_name is cut in place on the way and stands as it was at the end; make_dir_p
// works on a copy. Always 0: a directory that cannot be made ends the process with status 1,
// and one that cannot be given to its owner is only reported.
int make_dir_rec(char* dir_name, uid_t uid, gid_t gid, mode_t mode);
int make_dir_p(char const* dir_name, uid_t uid, gid_t gid, mode_t mode);

// Makes one directory and sets its owner and mode, even if it existed. It may vanish meanwhile. A
// link in its place is a failure. 0 or -1.
int make_dir(char const* dir_name, uid_t dir_uid, gid_t dir_gid, mode_t dir_mode);

// Makes the missing components of path, with mode 0755. 1, or 0 with errno set and no report:
// ENOTDIR when something that is no directory stands in the way.
int createNestedDirectory(char const* path);

// A copy of path cut at its last "/", which the caller frees; null without memory. The copy is
// whole when there is none.
[[nodiscard]] char* getBaseDir(char const* path);

#endif
