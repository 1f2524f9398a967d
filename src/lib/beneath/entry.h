// entry - operations on one entry of a directory, by its name
//
// Paths and failures are those of place.h. The last component is never followed either. Result: 0,
// or -1 with errno set.
//
// No command calls these, they are for callers to come: make_link_beneath, read_link_beneath,
// set_rights_beneath, take_entry_beneath.

#ifndef MAILVEK_LIB_BENEATH_ENTRY_H
#define MAILVEK_LIB_BENEATH_ENTRY_H

#include "lib/beneath/rights.h"
#include "lib/report/owned.h"

#include <cstddef>

#include <sys/stat.h>
#include <time.h>

// As lstat.
[[nodiscard]] int look_beneath(int dir, char const* path, struct stat& info);

// Removes anything but a directory, which gives EISDIR.
[[nodiscard]] int remove_file_beneath(int dir, char const* path);
// Removes an empty directory.
[[nodiscard]] int remove_directory_beneath(int dir, char const* path);

// Renames as rename does: over a file, or over an empty directory.
[[nodiscard]] int rename_beneath(int from_dir, char const* from, int to_dir, char const* to);
// EEXIST if anything is at the target. Some file systems cannot guarantee that: there the target is
// only checked before the rename, so one that is made in between may be replaced.
[[nodiscard]] int rename_new_beneath(int from_dir, char const* from, int to_dir, char const* to);

// Sets the times of access and modification, in the form of utimensat.
[[nodiscard]] int set_times_beneath(int dir, char const* path, timespec const (&times)[2]);

// Takes a directory, or a regular file with one name, for set_rights.
[[nodiscard]] OpenDescriptor take_entry_beneath(int dir, char const* path);
// Sets the rights of a directory, or of a regular file with one name. Anything else fails as in
// take_file_beneath.
[[nodiscard]] int set_rights_beneath(int dir, char const* path, Rights const& rights);

// Makes a symbolic link, which belongs to the tool. EEXIST if the name is taken.
[[nodiscard]] int make_link_beneath(int dir, char const* path, char const* target);
// Stores the link's target with a NUL. ENAMETOOLONG if it does not fit, EINVAL if it is no link.
[[nodiscard]] int read_link_beneath(int dir, char const* path, char* target, std::size_t size);

#endif
