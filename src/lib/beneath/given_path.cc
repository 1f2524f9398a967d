#include "lib/beneath/given_path.h"

#include "lib/beneath/file_name.h"
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
    std::string const component = path.substr(begin, end - begin);
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
    GivenWalk(std::string path, uid_t giver) : rest(std::move(path)), giver(giver) { begin(); }

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

    bool step(std::string const& name)
    {
        OpenDescriptor next(openat(here->get(), name.c_str(), O_PATH | O_NOFOLLOW | O_CLOEXEC));
        struct stat info = {};
        if (next.get() < 0 || fstat(next.get(), &info) != 0)
            return false;
        if (S_ISLNK(info.st_mode))
            return follow(next.get(), info.st_uid);
        here.emplace(next.release());
        return true;
    }

    bool follow(int link, uid_t owner)
    {
        if ((owner != 0 && owner != giver) || ++links > most_links) {
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
    uid_t giver;
    int links = 0;
    std::optional<OpenDescriptor> here; // never empty; it can only be replaced
};

} // namespace

OpenDescriptor open_given_parent(char const* path, uid_t giver, char const*& name)
{
    char const* const slash = strrchr(path, '/');
    name = slash ? slash + 1 : path;
    if (!is_file_name(name)) {
        errno = EINVAL;
        return OpenDescriptor(-1);
    }
    return GivenWalk(std::string(path, name), giver).directory();
}
