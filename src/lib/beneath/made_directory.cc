#include "lib/beneath/made_directory.h"

#include "lib/beneath/place.h"

#include <cerrno>
#include <string>

#include <sys/stat.h>

OpenDescriptor make_directory_beneath(int dir, char const* path, Rights const& rights,
                                      Making* making)
{
    int const before = errno;
    Place const place(dir, path);
    if (!place.found())
        return OpenDescriptor(-1);
    bool const made = mkdirat(place.dir(), place.name(), rights.mode & 0777) == 0;
    if (!made && errno != EEXIST)
        return OpenDescriptor(-1);
    if (making)
        *making = made ? Making::anew : Making::there;
    OpenDescriptor opened = open_directory_beneath(place.dir(), place.name());
    if (opened.get() < 0 || (made && set_rights(opened.get(), rights) != 0))
        return OpenDescriptor(-1);
    errno = before;
    return OpenDescriptor(opened.release());
}

OpenDescriptor make_directories_beneath(int dir, char const* path, Rights const& rights)
{
    std::string const whole = path;
    std::size_t slash = whole.find('/');
    int here = dir;
    for (std::size_t from = 0;; from = slash + 1, slash = whole.find('/', from)) {
        OpenDescriptor const left(here == dir ? -1 : here);
        std::string const name = whole.substr(from, slash == whole.npos ? slash : slash - from);
        here = make_directory_beneath(here, name.c_str(), rights, nullptr).release();
        if (here < 0 || slash == whole.npos)
            return OpenDescriptor(here);
    }
}
