// given_path - the place of a file that a caller of the tool hands over
//
// Such a file may lie among strangers: an upload in /tmp, a key in somebody's directory. A stranger
// who may write to a directory of its path could put a link there and have a file of root's read.
// So the way may lead over links of root, of the giver and of one other user; over a link of that
// user it leads to his own files only. A giver who is not root may hand over only his own files,
// even if the tool runs as root. The last component is not touched.
//
// Failures: errno as place.h has it; ELOOP also for links of two other users, EINVAL if the last
// component is not a file name. Nothing is reported.

#ifndef MAILVEK_LIB_BENEATH_GIVEN_PATH_H
#define MAILVEK_LIB_BENEATH_GIVEN_PATH_H

#include "lib/report/owned.h"

#include <optional>

#include <sys/stat.h>
#include <sys/types.h>

class GivenPlace
{
public:
    GivenPlace(char const* path, uid_t giver);

    // False with errno set when the directory could not be reached.
    [[nodiscard]] bool found() const { return directory.get() >= 0; }
    [[nodiscard]] int dir() const { return directory.get(); }
    [[nodiscard]] char const* name() const { return last; }

    // Whether the file of that name, as info shows it, may be taken. False sets errno to EPERM.
    [[nodiscard]] bool gives(struct stat const& info) const;

private:
    uid_t const giver;
    char const* const last;
    std::optional<uid_t> link_owner; // the other user
    OpenDescriptor const directory;
};

#endif
