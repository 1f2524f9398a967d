#include "lib/beneath/entry.h"

#include "lib/beneath/opened_file.h"
#include "lib/beneath/place.h"

#include <cerrno>
#include <cstdio>

#include <fcntl.h>
#include <unistd.h>

namespace {

int unlink_beneath(int dir, char const* path, int flags)
{
    Place const place(dir, path);
    return place.found() ? unlinkat(place.dir(), place.name(), flags) : -1;
}

int rename_unless_there(Place const& from, Place const& to)
{
    struct stat info = {};
    if (fstatat(to.dir(), to.name(), &info, AT_SYMLINK_NOFOLLOW) == 0) {
        errno = EEXIST;
        return -1;
    }
    return errno == ENOENT ? renameat(from.dir(), from.name(), to.dir(), to.name()) : -1;
}

} // namespace

int look_beneath(int dir, char const* path, struct stat& info)
{
    Place const place(dir, path);
    return place.found() ? fstatat(place.dir(), place.name(), &info, AT_SYMLINK_NOFOLLOW) : -1;
}

int remove_file_beneath(int dir, char const* path)
{
    return unlink_beneath(dir, path, 0);
}

int remove_directory_beneath(int dir, char const* path)
{
    return unlink_beneath(dir, path, AT_REMOVEDIR);
}

int rename_beneath(int from_dir, char const* from, int to_dir, char const* to)
{
    Place const source(from_dir, from);
    if (!source.found())
        return -1;
    Place const target(to_dir, to);
    return target.found() ? renameat(source.dir(), source.name(), target.dir(), target.name()) : -1;
}

int rename_new_beneath(int from_dir, char const* from, int to_dir, char const* to)
{
    Place const source(from_dir, from);
    if (!source.found())
        return -1;
    Place const target(to_dir, to);
    if (!target.found())
        return -1;
    int const before = errno;
    if (renameat2(source.dir(), source.name(), target.dir(), target.name(), RENAME_NOREPLACE) == 0)
        return 0;
    // EINVAL can also mean a directory moved into itself; the second way reports that again.
    if (errno != EINVAL && errno != ENOSYS)
        return -1;
    int const result = rename_unless_there(source, target);
    if (result == 0)
        errno = before;
    return result;
}

int set_times_beneath(int dir, char const* path, timespec const (&times)[2])
{
    Place const place(dir, path);
    return place.found() ? utimensat(place.dir(), place.name(), times, AT_SYMLINK_NOFOLLOW) : -1;
}

OpenDescriptor take_entry_beneath(int dir, char const* path)
{
    int const before = errno;
    OpenDescriptor taken = take_file_beneath(dir, path, any_size);
    if (taken.get() >= 0 || errno != EISDIR)
        return OpenDescriptor(taken.release());
    errno = before;
    return open_directory_beneath(dir, path);
}

int set_rights_beneath(int dir, char const* path, Rights const& rights)
{
    OpenDescriptor const taken = take_entry_beneath(dir, path);
    return taken.get() < 0 ? -1 : set_rights(taken.get(), rights);
}

int make_link_beneath(int dir, char const* path, char const* target)
{
    Place const place(dir, path);
    return place.found() ? symlinkat(target, place.dir(), place.name()) : -1;
}

int read_link_beneath(int dir, char const* path, char* target, std::size_t size)
{
    Place const place(dir, path);
    ssize_t const length = place.found() ? readlinkat(place.dir(), place.name(), target, size) : -1;
    if (length < 0)
        return -1;
    if (static_cast<std::size_t>(length) == size) {
        errno = ENAMETOOLONG;
        return -1;
    }
    target[length] = '\0';
    return 0;
}
