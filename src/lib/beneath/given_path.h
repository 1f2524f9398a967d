// given_path - opens the directory of a file that a caller of the tool hands over
//
// Such a file may lie among strangers: an upload in /tmp, a key in somebody's directory. A stranger
// who may write to a directory of its path could put a link there and have a file of root's read.
// So a link in the path is followed only if root or the giver owns it. The last component is not
// touched.
//
// Failures: -1 with errno set, as place.h has them; ELOOP also for a link of anybody else.

#ifndef MAILVEK_LIB_BENEATH_GIVEN_PATH_H
#define MAILVEK_LIB_BENEATH_GIVEN_PATH_H

#include "lib/report/owned.h"

#include <sys/types.h>

// Opens the directory that holds path, and points name at the last component of path. EINVAL if
// that is not a file name.
[[nodiscard]] OpenDescriptor open_given_parent(char const* path, uid_t giver, char const*& name);

#endif
