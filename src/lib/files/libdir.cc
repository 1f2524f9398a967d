#include "lib/files/libdir.h"

#include "lib/beneath/made_directory.h"
#include "lib/beneath/place.h"
#include "lib/report/failure.h"
#include "lib/report/liblog.h"
#include "lib/report/owned.h"

#include <cerrno>
#include <cstring>
#include <string>

#include <sys/stat.h>

namespace {

constexpr mode_t nested_mode = 0755;

// Keeps errno.
bool is_directory(char const* path)
{
    ErrnoKeeper const keeper;
    struct stat info = {};
    return stat(path, &info) == 0 && S_ISDIR(info.st_mode);
}

std::string without_last_slashes(std::string path)
{
    while (path.size() > 1 && path.back() == '/')
        path.pop_back();
    return path;
}

// Makes a directory, or opens the one that is there, even if another process has just made it.
OpenDescriptor make_one(char const* path, mode_t mode, Making& making)
{
    std::string const whole = without_last_slashes(path);
    char const* name = nullptr;
    OpenDescriptor const parent = open_parent(whole.c_str(), name);
    if (parent.get() < 0)
        return OpenDescriptor(-1);
    making = Making::anew;
    OpenDescriptor opened = make_directory_beneath(parent.get(), name, mode_only(mode), &making);
    if (opened.get() < 0 && making == Making::there && errno == ENOTDIR)
        errno = EEXIST;
    return OpenDescriptor(opened.release());
}

bool make_component(char const* path)
{
    Making making = Making::anew;
    if (is_directory(path) || make_one(path, nested_mode, making).get() >= 0)
        return true;
    if (making == Making::there)
        errno = ENOTDIR;
    return false;
}

void make_parents(char* dir_name, uid_t uid, gid_t gid, mode_t mode)
{
    char* const slash = strrchr(dir_name, '/');
    if (!slash || slash == dir_name)
        return;
    *slash = '\0';
    make_dir_rec(dir_name, uid, gid, mode);
    *slash = '/';
}

} // namespace

int make_dir_rec(char* dir_name, uid_t uid, gid_t gid, mode_t mode)
{
    if (is_directory(dir_name))
        return 0;
    make_parents(dir_name, uid, gid, mode);
    Making making = Making::anew;
    OpenDescriptor const made = make_one(dir_name, mode, making);
    if (made.get() < 0)
        fatal("Cannot create directory %s: %s", dir_name, strerror(errno));
    if (making == Making::anew && set_rights(made.get(), {uid, gid, same_mode}) != 0)
        messlog2(0, 0, "Cannot chown %s: %s", dir_name, strerror(errno));
    return 0;
}

int make_dir_p(char const* dir_name, uid_t uid, gid_t gid, mode_t mode)
{
    CString const copy(strdup(dir_name));
    if (!copy)
        fatal("Cannot create directory %s: %s", dir_name, strerror(errno));
    return make_dir_rec(copy.get(), uid, gid, mode);
}

int make_dir(char const* dir_name, uid_t dir_uid, gid_t dir_gid, mode_t dir_mode)
{
    int const before = errno;
    Making making = Making::anew;
    OpenDescriptor const made = make_one(dir_name, dir_mode, making);
    bool const has_vanished = made.get() < 0 && making == Making::there && errno == ENOENT;
    if (made.get() < 0 && !has_vanished)
        return failure(-1, "ERROR: Unable to mkdir %s: %s\n", dir_name, strerror(errno));
    errno = before;
    if (has_vanished)
        return 0;
    if (set_rights(made.get(), {dir_uid, dir_gid, same_mode}) != 0)
        return failure(-1, "ERROR: Unable to chown %s: %s\n", dir_name, strerror(errno));
    if (set_rights(made.get(), mode_only(dir_mode)) != 0)
        return failure(-1, "ERROR: Unable to chmod %s: %s\n", dir_name, strerror(errno));
    return 0;
}

int createNestedDirectory(char const* path)
{
    CString const copy(strdup(path));
    if (!copy)
        return 0;
    for (char* end = copy.get(); *end != '\0';) {
        end += strspn(end, "/");
        end += strcspn(end, "/");
        char const separator = *end;
        *end = '\0';
        if (!make_component(copy.get()))
            return 0;
        *end = separator;
    }
    return 1;
}

char* getBaseDir(char const* path)
{
    char const* const slash = strrchr(path, '/');
    return slash ? strndup(path, static_cast<std::size_t>(slash - path)) : strdup(path);
}
