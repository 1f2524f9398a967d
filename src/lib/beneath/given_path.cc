#include "lib/beneath/given_path.h"

#include "lib/beneath/file_name.h"
#include "lib/beneath/place.h"
#include "lib/report/form_path.h"

#include <cerrno>
#include <cstring>
#include <optional>
#include <string>
#include <utility>

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

namespace {

constexpr int most_links = 40; // as the kernel follows

// Takes the first component off the path. Empty when none is left.
std::string next_component(std::string& path)
{
    std::size_t const begin = path.find_first_not_of('/');
    if (begin == path.npos)
        return {};
    std::size_t const end = path.find('/', begin);
    std::string component = path.substr(begin, end - begin);
    path.erase(0, end);
    return component;
}

// What the link that descriptor is opened at says, or nothing with errno set.
std::string target_of(int link)
{
    char target[path_size] = {};
    ssize_t const length = readlinkat(link, "", target, sizeof target);
    if (length >= static_cast<ssize_t>(sizeof target))
        errno = ENAMETOOLONG;
    return length > 0 && length < static_cast<ssize_t>(sizeof target) ? target : "";
}

// A walk along a path, from the root or from the working directory.
class GivenWalk
{
public:
    // Stores the owner of links that are neither root's nor the giver's in other.
    GivenWalk(std::string path, uid_t giver, std::optional<uid_t>& other)
        : rest(std::move(path)), giver(giver), other(other)
    {
        begin();
    }

    // The directory at the path, or -1 with errno set.
    OpenDescriptor directory()
    {
        if (here->get() < 0)
            return OpenDescriptor(-1);
        for (std::string name = next_component(rest); !name.empty(); name = next_component(rest))
            if (!step(name))
                return OpenDescriptor(-1);
        return OpenDescriptor(openat(here->get(), ".", O_RDONLY | O_DIRECTORY | O_CLOEXEC));
    }

private:
    void begin()
    {
        here.emplace(open(rest.starts_with('/') ? "/" : ".", O_PATH | O_DIRECTORY | O_CLOEXEC));
    }

    // With O_DIRECTORY first, at which the kernel mounts what is mounted on demand.
    int entry(std::string const& name) const
    {
        int const flags = O_PATH | O_NOFOLLOW | O_CLOEXEC;
        int const before = errno;
        int const opened = openat(here->get(), name.c_str(), flags | O_DIRECTORY);
        if (opened >= 0 || errno != ENOTDIR)
            return opened;
        errno = before;
        return openat(here->get(), name.c_str(), flags);
    }

    bool step(std::string const& name)
    {
        OpenDescriptor next(entry(name));
        struct stat info = {};
        if (next.get() < 0 || fstat(next.get(), &info) != 0)
            return false;
        if (S_ISLNK(info.st_mode))
            return follow(next.get(), info.st_uid);
        here.emplace(next.release());
        return true;
    }

    bool is_allowed(uid_t owner)
    {
        if (owner == 0 || owner == giver)
            return true;
        if (!other)
            other = owner;
        return other == owner;
    }

    bool follow(int link, uid_t owner)
    {
        if (!is_allowed(owner) || ++links > most_links) {
            errno = ELOOP;
            return false;
        }
        std::string const target = target_of(link);
        if (target.empty())
            return false;
        rest = target + '/' + rest;
        if (target.front() == '/')
            begin();
        return true;
    }

    std::string rest;
    uid_t const giver;
    std::optional<uid_t>& other;
    int links = 0;
    std::optional<OpenDescriptor> here; // never empty; it can only be replaced
};

OpenDescriptor directory_of(char const* path, uid_t giver, std::optional<uid_t>& other)
{
    char const* const name = last_component(path);
    if (!is_file_name(name)) {
        errno = EINVAL;
        return OpenDescriptor(-1);
    }
    return GivenWalk(std::string(path, name), giver, other).directory();
}

} // namespace

GivenPlace::GivenPlace(char const* path, uid_t giver)
    : giver(giver), last(last_component(path)), directory(directory_of(path, giver, link_owner))
{
}

bool GivenPlace::gives(struct stat const& info) const
{
    bool const own = giver == 0 || info.st_uid == giver;
    if (own && (!link_owner || info.st_uid == *link_owner))
        return true;
    errno = EPERM;
    return false;
}
