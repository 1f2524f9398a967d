#include "lib/beneath/rights.h"

#include "lib/beneath/descriptor_path.h"

#include <cerrno>

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

namespace {

int change_mode(int fd, mode_t mode)
{
    int const before = errno;
    if (fchmod(fd, mode) == 0)
        return 0;
    if (errno != EBADF) // EBADF: fd was opened with O_PATH
        return -1;
    errno = before;
    return chmod(DescriptorPath(fd).get(), mode);
}

} // namespace

int set_rights(int fd, Rights const& rights)
{
    if ((rights.uid != same_user || rights.gid != same_group) &&
        fchownat(fd, "", rights.uid, rights.gid, AT_EMPTY_PATH) != 0)
        return -1;
    return rights.mode == same_mode ? 0 : change_mode(fd, rights.mode);
}
