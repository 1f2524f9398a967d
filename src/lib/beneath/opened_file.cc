#include "lib/beneath/opened_file.h"

#include "lib/beneath/descriptor_path.h"
#include "lib/beneath/place.h"

#include <cerrno>

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

namespace {

// Attempts at a file that is replaced by another one each time.
constexpr int most_replacements = 16;

// The error number for a file that must not be opened, or 0.
int objection(struct stat const& info, off_t most)
{
    if (S_ISLNK(info.st_mode))
        return ELOOP;
    if (S_ISDIR(info.st_mode))
        return EISDIR;
    if (!S_ISREG(info.st_mode))
        return EINVAL;
    if (info.st_nlink > 1)
        return EMLINK;
    return info.st_size > most ? EFBIG : 0;
}

// The error number for the taken file, or 0 when it may be used. Sets replaced when the file has
// lost its name since it was taken.
int check(int taken, off_t most, bool& replaced)
{
    struct stat info = {};
    if (fstat(taken, &info) != 0)
        return errno;
    replaced = info.st_nlink == 0;
    return replaced ? ENOENT : objection(info, most);
}

} // namespace

OpenDescriptor take_file_beneath(int dir, char const* path, off_t most)
{
    Place const place(dir, path);
    bool replaced = place.found();
    for (int i = 0; replaced && i < most_replacements; ++i) {
        OpenDescriptor taken(openat(place.dir(), place.name(), O_PATH | O_NOFOLLOW | O_CLOEXEC));
        if (taken.get() < 0)
            break;
        int const error = check(taken.get(), most, replaced);
        if (error == 0)
            return OpenDescriptor(taken.release());
        errno = error;
    }
    return OpenDescriptor(-1);
}

OpenDescriptor open_file_beneath(int dir, char const* path, int access, off_t most)
{
    OpenDescriptor const taken = take_file_beneath(dir, path, most);
    return taken.get() < 0 ? OpenDescriptor(-1) : open_taken_file(taken.get(), access);
}

OpenDescriptor open_taken_file(int taken, int access)
{
    // Without O_NONBLOCK the open would wait for a lease that the file's owner holds.
    return OpenDescriptor(
        open(DescriptorPath(taken).get(), access | O_NONBLOCK | O_NOCTTY | O_CLOEXEC));
}

OpenFile read_file_beneath(int dir, char const* path, off_t most)
{
    return stream_of(open_file_beneath(dir, path, O_RDONLY, most), "r");
}

OpenDescriptor make_file_beneath(int dir, char const* path, mode_t mode)
{
    Place const place(dir, path);
    if (!place.found())
        return OpenDescriptor(-1);
    int const flags = O_RDWR | O_CREAT | O_EXCL | O_NOFOLLOW | O_CLOEXEC;
    OpenDescriptor made(openat(place.dir(), place.name(), flags, mode & 0777));
    if (made.get() >= 0 && set_rights(made.get(), mode_only(mode)) != 0) {
        ErrnoKeeper const keeper;
        unlinkat(place.dir(), place.name(), 0);
        return OpenDescriptor(-1);
    }
    return OpenDescriptor(made.release());
}

OpenDescriptor open_or_make_beneath(int dir, char const* path, int access, off_t most, mode_t mode)
{
    int const before = errno;
    int opened = -1;
    for (int i = 0; opened < 0 && i < most_replacements; ++i) {
        opened = open_file_beneath(dir, path, access, most).release();
        if (opened >= 0 || errno != ENOENT)
            break;
        opened = make_file_beneath(dir, path, mode).release();
        if (opened < 0 && errno != EEXIST) // EEXIST: somebody made it just now, so open it
            break;
    }
    if (opened >= 0)
        errno = before;
    return OpenDescriptor(opened);
}

OpenFile stream_of(OpenDescriptor descriptor, char const* mode)
{
    OpenFile stream(descriptor.get() < 0 ? nullptr : fdopen(descriptor.get(), mode));
    if (stream)
        static_cast<void>(descriptor.release());
    return stream;
}
