#include "lib/beneath/place.h"

#include "lib/beneath/file_name.h"
#include "lib/report/form_path.h"

#include <cerrno>
#include <cstring>
#include <string_view>

#include <fcntl.h>
#include <linux/openat2.h>
#include <sys/stat.h>
#include <sys/syscall.h>

namespace {

constexpr int directory_flags = O_RDONLY | O_DIRECTORY | O_CLOEXEC;

// Calls step with each component of path. Stops and returns false when step does.
template<typename Step>
bool each_component(std::string_view path, Step step)
{
    for (;;) {
        std::size_t const slash = path.find('/');
        if (!step(path.substr(0, slash)))
            return false;
        if (slash == path.npos)
            return true;
        path.remove_prefix(slash + 1);
    }
}

bool is_sound(std::string_view path)
{
    if (!each_component(path, [](std::string_view word) { return is_file_name(word); }))
        errno = EINVAL;
    else if (path.size() >= path_size)
        errno = ENAMETOOLONG;
    else
        return true;
    return false;
}

int open_at_once(int dir, char const* path)
{
    open_how how = {};
    how.flags = directory_flags;
    how.resolve = RESOLVE_BENEATH | RESOLVE_NO_SYMLINKS | RESOLVE_NO_MAGICLINKS;
    return static_cast<int>(syscall(SYS_openat2, dir, path, &how, sizeof how));
}

// Turns ENOTDIR into ELOOP for a link: the kernel gives ENOTDIR for a file and for a link alike.
void tell_a_link(int dir, char const* name)
{
    struct stat info = {};
    if (errno == ENOTDIR && fstatat(dir, name, &info, AT_SYMLINK_NOFOLLOW) == 0 &&
        S_ISLNK(info.st_mode))
        errno = ELOOP;
    else
        errno = ENOTDIR;
}

int open_component(int dir, std::string_view word)
{
    char name[path_size] = {};
    word.copy(name, sizeof name - 1);
    int const opened = openat(dir, name, directory_flags | O_NOFOLLOW);
    if (opened < 0 && errno == ENOTDIR)
        tell_a_link(dir, name);
    return opened;
}

int open_by_steps(int dir, std::string_view path)
{
    int here = dir;
    each_component(path, [&](std::string_view word) {
        OpenDescriptor const left(here == dir ? -1 : here);
        here = open_component(here, word);
        return here >= 0;
    });
    return here;
}

// path is sound. Walks by hand without openat2: kernels before 5.6 lack it, and a container's
// filter of system calls may refuse it.
int open_walked(int dir, char const* path)
{
    int const before = errno;
    int const opened = open_at_once(dir, path);
    if (opened >= 0 || (errno != ENOSYS && errno != EPERM))
        return opened;
    errno = before;
    return open_by_steps(dir, path);
}

// Opens the directory that holds the last component of path. Opens nothing and keeps errno when
// that is dir itself.
OpenDescriptor open_way(int dir, char const* path)
{
    char const* const slash = strrchr(path, '/');
    if (!is_sound(path) || !slash)
        return OpenDescriptor(-1);
    char way[path_size] = {};
    memcpy(way, path, static_cast<std::size_t>(slash - path));
    return OpenDescriptor(open_walked(dir, way));
}

} // namespace

char const* last_component(char const* path)
{
    char const* const slash = strrchr(path, '/');
    return slash ? slash + 1 : path;
}

OpenDescriptor open_root(char const* path)
{
    return OpenDescriptor(open(path, directory_flags));
}

OpenDescriptor open_parent(char const* path, char const*& name)
{
    name = last_component(path);
    std::size_t const length = static_cast<std::size_t>(name - path);
    if (!is_file_name(name) || length >= path_size) {
        errno = length >= path_size ? ENAMETOOLONG : EINVAL;
        return OpenDescriptor(-1);
    }
    char way[path_size] = ".";
    memcpy(way, path, length);
    return open_root(way);
}

OpenDescriptor open_directory_beneath(int dir, char const* path)
{
    return OpenDescriptor(is_sound(path) ? open_walked(dir, path) : -1);
}

Place::Place(int dir, char const* path)
    : opened(open_way(dir, path)), directory(is_file_name(path) ? dir : opened.get()),
      last(last_component(path))
{
}
