#include "lib/files/libdir.h"

#include "lib/report/failure.h"
#include "lib/report/liblog.h"
#include "lib/report/owned.h"

#include <cerrno>
#include <cstring>

#include <sys/stat.h>
#include <unistd.h>

namespace {

constexpr mode_t nested_mode = 0755;

// Without a trace in errno of what is missing.
bool is_directory(char const* path)
{
    ErrnoKeeper const keeper;
    struct stat info = {};
    return stat(path, &info) == 0 && S_ISDIR(info.st_mode);
}

enum class Made
{
    new_one,
    existing,
    failed,
};

// Takes a directory that another process has made meanwhile for an existing one.
Made make_one(char const* path, mode_t mode)
{
    int const before = errno;
    if (mkdir(path, mode) == 0)
        return Made::new_one;
    if (errno != EEXIST || !is_directory(path))
        return Made::failed;
    errno = before;
    return Made::existing;
}

bool make_component(char const* path)
{
    if (is_directory(path) || make_one(path, nested_mode) != Made::failed)
        return true;
    if (errno == EEXIST)
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
    switch (make_one(dir_name, mode)) {
    case Made::existing:
        return 0;
    case Made::failed:
        fatal("Cannot create directory %s: %s", dir_name, strerror(errno));
    case Made::new_one:
        break;
    }
    if (chown(dir_name, uid, gid) != 0)
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
    if (make_one(dir_name, dir_mode) == Made::failed)
        return failure(-1, "ERROR: Unable to mkdir %s: %s\n", dir_name, strerror(errno));
    int const before = errno;
    // In this order, for chown takes away the set-id bits.
    if (chown(dir_name, dir_uid, dir_gid) != 0 && errno != ENOENT)
        return failure(-1, "ERROR: Unable to chown %s: %s\n", dir_name, strerror(errno));
    if (chmod(dir_name, dir_mode) != 0 && errno != ENOENT)
        return failure(-1, "ERROR: Unable to chmod %s: %s\n", dir_name, strerror(errno));
    errno = before;
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
