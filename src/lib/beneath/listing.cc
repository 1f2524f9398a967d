#include "lib/beneath/listing.h"

#include <cerrno>
#include <string_view>

#include <fcntl.h>
#include <sys/stat.h>

namespace {

bool is_counted(std::string_view name)
{
    return name != "." && name != "..";
}

// 1; 0 when the entry has gone since it was read; -1 after a failure.
int tell_kind(int dir, dirent const& entry, mode_t& kind)
{
    if (entry.d_type != DT_UNKNOWN) {
        kind = static_cast<mode_t>(DTTOIF(entry.d_type));
        return 1;
    }
    struct stat info = {};
    if (fstatat(dir, entry.d_name, &info, AT_SYMLINK_NOFOLLOW) != 0)
        return errno == ENOENT ? 0 : -1;
    kind = info.st_mode & S_IFMT;
    return 1;
}

} // namespace

int next_listed(OpenDir const& stream, ListedEntry& entry)
{
    int const before = errno;
    for (;;) {
        errno = 0; // only errno tells the end of a directory from a failure
        dirent const* const read = readdir(stream.get());
        if (!read && errno != 0)
            return -1;
        int const told = read && is_counted(read->d_name)
                             ? tell_kind(dirfd(stream.get()), *read, entry.kind)
                             : 0;
        if (told < 0)
            return -1;
        if (told == 0 && read)
            continue;
        errno = before;
        if (read)
            entry.name = read->d_name;
        return told;
    }
}

OpenDir open_listing(int dir)
{
    OpenDescriptor opened(openat(dir, ".", O_RDONLY | O_DIRECTORY | O_CLOEXEC));
    OpenDir stream(opened.get() < 0 ? nullptr : fdopendir(opened.get()));
    if (stream)
        static_cast<void>(opened.release());
    return stream;
}

int list_directory(int dir, std::size_t most, std::function<int(ListedEntry const&)> const& visit)
{
    OpenDir const stream = open_listing(dir);
    if (!stream)
        return -1;
    ListedEntry entry = {};
    for (std::size_t count = 0;; ++count) {
        int const told = next_listed(stream, entry);
        if (told <= 0)
            return told;
        if (count == most) {
            errno = EFBIG;
            return -1;
        }
        int const result = visit(entry);
        if (result != 0)
            return result;
    }
}
