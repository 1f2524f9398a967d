// rights - owner, group and mode of what a descriptor is open on
//
// set_rights changes the owner first, for that takes away the set-id bits, and then the mode,
// exactly as told, whatever the umask. The descriptor may be one of O_PATH. 0, or -1 with errno
// set and nothing reported.

#ifndef MAILVEK_LIB_BENEATH_RIGHTS_H
#define MAILVEK_LIB_BENEATH_RIGHTS_H

#include <sys/types.h>

// What stays as it is.
constexpr uid_t same_user = static_cast<uid_t>(-1);
constexpr gid_t same_group = static_cast<gid_t>(-1);
constexpr mode_t same_mode = static_cast<mode_t>(-1);

struct Rights
{
    uid_t uid;
    gid_t gid;
    mode_t mode;
};

// The mode, with the owner and group left as they are.
constexpr Rights mode_only(mode_t mode)
{
    return {same_user, same_group, mode};
}

[[nodiscard]] int set_rights(int fd, Rights const& rights);

#endif
