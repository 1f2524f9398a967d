#include "lib/beneath/temporary_file.h"

#include "lib/beneath/file_name.h"
#include "lib/beneath/opened_file.h"

#include <cerrno>

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

namespace {

constexpr int most_attempts = 100;

int make_new(Place const& place, std::string& name, char const* separator, mode_t mode)
{
    for (int i = 0; place.found() && i < most_attempts; ++i) {
        name = place.name() + (separator + unforeseeable_characters());
        OpenDescriptor made = make_file_beneath(place.dir(), name.c_str(), mode);
        if (made.get() >= 0 || errno != EEXIST)
            return made.release();
    }
    return -1;
}

int make_named(Place const& place, std::string& name, char const* suffix, mode_t mode)
{
    if (!place.found())
        return -1;
    int const before = errno;
    name = std::string(place.name()) + suffix;
    for (int i = 0; i < most_attempts; ++i) {
        OpenDescriptor made = make_file_beneath(place.dir(), name.c_str(), mode);
        if (made.get() >= 0 || errno != EEXIST)
            return made.release();
        if (unlinkat(place.dir(), name.c_str(), 0) != 0 && errno != ENOENT)
            return -1;
        errno = before;
    }
    errno = EEXIST;
    return -1;
}

} // namespace

TemporaryFile::TemporaryFile(int dir, char const* target, mode_t mode)
    : TemporaryFile(".", dir, target, mode)
{
}

TemporaryFile::TemporaryFile(char const* separator, int dir, char const* target, mode_t mode)
    : place(dir, target), made(make_new(place, own_name, separator, mode))
{
    if (made.get() < 0)
        keep();
}

TemporaryFile TemporaryFile::with_separator(int dir, char const* target, char const* separator,
                                            mode_t mode)
{
    return {separator, dir, target, mode};
}

TemporaryFile::TemporaryFile(int dir, char const* path)
    : place(dir, path), own_name(place.name()), made(-1)
{
}

TemporaryFile TemporaryFile::of_caller(int dir, char const* path)
{
    return TemporaryFile(dir, path);
}

TemporaryFile::TemporaryFile(int dir, char const* target, char const* suffix, mode_t mode)
    : place(dir, target), made(make_named(place, own_name, suffix, mode))
{
    if (made.get() < 0)
        keep();
}

TemporaryFile::~TemporaryFile()
{
    remove();
}

int TemporaryFile::remove()
{
    ErrnoKeeper const keeper;
    int const error =
        own_name.empty() || unlinkat(place.dir(), own_name.c_str(), 0) == 0 ? 0 : errno;
    keep();
    return error;
}

OpenFile TemporaryFile::write_stream()
{
    return stream_of(OpenDescriptor(made.release()), "w");
}

int TemporaryFile::replace()
{
    if (made.close_now() != 0 ||
        renameat(place.dir(), own_name.c_str(), place.dir(), place.name()) != 0)
        return -1;
    keep();
    return 0;
}
