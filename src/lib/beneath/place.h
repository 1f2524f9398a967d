// place - walks a path beneath a directory without following any link
//
// The one door to trees that others own. Everything done in such a tree uses the descriptor of a
// directory and a path beneath it; AT_FDCWD stands for the working directory. The path has one or
// more components separated by single slashes, each a file name (is_file_name). No symbolic link is
// followed, wherever it stands in the path. What others rename at the same time cannot lead out of
// the directory.
//
// Failures: -1, or a descriptor below 0, with errno set. Nothing is reported. errno is
//   EINVAL   a component is not a file name
//   ELOOP    a component is a symbolic link
//   ENOTDIR  a component before the last is not a directory
// or that of a system call. Descriptors are close-on-exec.

#ifndef MAILVEK_LIB_BENEATH_PLACE_H
#define MAILVEK_LIB_BENEATH_PLACE_H

#include "lib/report/owned.h"

#include <fcntl.h>

// What follows the last slash of path: the part of path itself, which may be empty.
[[nodiscard]] char const* last_component(char const* path);

// Opens a directory named by root's configuration. Follows links in its path.
[[nodiscard]] OpenDescriptor open_root(char const* path);

// Opens the directory that holds path, as open_root does, and points name at the last component of
// path, which is not touched. EINVAL if that is not a file name.
[[nodiscard]] OpenDescriptor open_parent(char const* path, char const*& name);

// Opens the directory at path beneath dir. ENOTDIR if it is not a directory.
[[nodiscard]] OpenDescriptor open_directory_beneath(int dir, char const* path);

// The directory that holds the last component of path, and that component, for the *at calls. Both
// are valid as long as the Place, dir and path are.
class Place
{
public:
    Place(int dir, char const* path);

    // False with errno set when the directory could not be reached.
    [[nodiscard]] bool found() const { return directory >= 0 || directory == AT_FDCWD; }
    [[nodiscard]] int dir() const { return directory; }
    [[nodiscard]] char const* name() const { return last; }

private:
    OpenDescriptor opened; // nothing when path has only one component
    int directory;
    char const* last;
};

#endif
