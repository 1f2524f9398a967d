// place - where a path beneath a root leads, without following anybody's link
//
// The one door to trees that others own: what is done in them goes by a descriptor of a directory
// and a path beneath it; AT_FDCWD stands for the working directory. Such a path has one or more
// components, each a file name (is_file_name), parted by single slashes. No symbolic link is
// followed, wherever in the path it stands, and nothing that others rename meanwhile leads out of
// the directory.
//
// Results: -1, or a descriptor below 0, with errno set. Nothing is reported. errno says
//   EINVAL   the path has a component that is no file name
//   ELOOP    a component is a symbolic link
//   ENOTDIR  a component before the last is no directory
// and what the system calls say. Descriptors are close-on-exec.

#ifndef MAILVEK_LIB_BENEATH_PLACE_H
#define MAILVEK_LIB_BENEATH_PLACE_H

#include "lib/report/owned.h"

#include <fcntl.h>

// Opens a directory that root's configuration names; links in its path are followed.
[[nodiscard]] OpenDescriptor open_root(char const* path);

// Opens the directory in which path lies, as open_root does, and points name at the last
// component of path, which is not looked at. EINVAL if that is no file name.
[[nodiscard]] OpenDescriptor open_parent(char const* path, char const*& name);

// Opens the directory at path beneath dir. ENOTDIR if it is none.
[[nodiscard]] OpenDescriptor open_directory_beneath(int dir, char const* path);

// The directory that holds the last component of path, and that component: what the *at calls
// need. Both live as long as the Place, dir and path do.
class Place
{
public:
    Place(int dir, char const* path);

    // False with errno set when the way there is barred.
    [[nodiscard]] bool found() const { return directory >= 0 || directory == AT_FDCWD; }
    [[nodiscard]] int dir() const { return directory; }
    [[nodiscard]] char const* name() const { return last; }

private:
    OpenDescriptor opened; // none while the last component is the only one
    int directory;
    char const* last;
};

#endif
