// rights - owner, group and mode of the file that a descriptor is open on
//
// set_rights changes the owner first, because that clears the set-id bits, and then the mode. The
// mode is set exactly; the umask does not count. The descriptor may be opened with O_PATH. Returns
// 0, or -1 with errno set and nothing reported.

#ifndef MAILVEK_LIB_BENEATH_RIGHTS_H
#define MAILVEK_LIB_BENEATH_RIGHTS_H

#include <sys/types.h>

// These values change nothing.
constexpr uid_t same_user = static_cast<uid_t>(-1);
constexpr gid_t same_group = static_cast<gid_t>(-1);
constexpr mode_t same_mode = static_cast<mode_t>(-1);

struct Rights
{
    uid_t uid;
    gid_t gid;
    mode_t mode;
};

// Changes only the mode.
constexpr Rights mode_only(mode_t mode)
{
    return {same_user, same_group, mode};
}

[[nodiscard]] int set_rights(int fd, Rights const& rights);

#endif
