#include "lib/files/libtree.h"

#include "lib/files/dot_entry.h"
#include "lib/host/orvek_ugid.h"
#include "lib/report/failure.h"
#include "lib/report/owned.h"

#include <cerrno>
#include <cstring>
#include <functional>
#include <string>
#include <vector>

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

namespace {

// Whether a call failed because its object has gone, which passes for done: others may be at
// work in the same tree.
bool vanished()
{
    return errno == ENOENT;
}

// What is done on the way through a tree. Each step names an object by its path from the
// working directory and ends the process when it fails.
struct TreeAction
{
    using Step = std::function<void(char const* name)>;

    bool removes;   // all kinds but directories, and a missing argument is fine; else files only
    Step argument;  // to a file that is the argument itself
    Step entry;     // to a file in a directory
    Step directory; // to a directory, when its entries are done
};

bool concerns(TreeAction const& action, mode_t mode)
{
    return action.removes ? !S_ISDIR(mode) : S_ISREG(mode);
}

// A symbolic link that has taken the directory's place since it was looked at is not followed.
OpenDir open_dir(char const* dir)
{
    OpenDescriptor opened(open(dir, O_RDONLY | O_DIRECTORY | O_NOFOLLOW));
    OpenDir stream(opened.get() < 0 ? nullptr : fdopendir(opened.get()));
    if (stream)
        static_cast<void>(opened.release());
    return stream;
}

void treat_entry(char const* name, TreeAction const& action, std::vector<std::string>& directories)
{
    struct stat info = {};
    if (lstat(name, &info) != 0) {
        if (!vanished())
            fatal("Unable to check directory entry %s: %s\n", name, strerror(errno));
        return;
    }
    if (S_ISDIR(info.st_mode))
        directories.emplace_back(name);
    else if (concerns(action, info.st_mode))
        action.entry(name);
}

// Treats all entries of the working directory but its directories, which are returned.
std::vector<std::string> treat_entries(OpenDir const& stream, char const* dir,
                                       TreeAction const& action)
{
    std::vector<std::string> directories;
    for (;;) {
        errno = 0;
        dirent const* const entry = readdir(stream.get());
        if (!entry)
            break;
        if (!is_dot_entry(entry->d_name))
            treat_entry(entry->d_name, action, directories);
    }
    if (errno != 0)
        fatal("Unable to check directory entry %s: %s\n", dir, strerror(errno));
    return directories;
}

// The stream is closed before the walk goes down, so that a level costs one descriptor.
void treat_directory(char const* dir, TreeAction const& action, bool may_vanish, bool itself)
{
    OpenDescriptor way_back(open(".", O_PATH | O_DIRECTORY));
    if (way_back.get() < 0)
        fatal("Unable to get file descriptor of current dir: %s\n", strerror(errno));
    OpenDir stream = open_dir(dir);
    if (!stream && may_vanish && vanished())
        return;
    if (!stream)
        fatal("Unable to open dir %s: %s\n", dir, strerror(errno));
    if (fchdir(dirfd(stream.get())) != 0)
        fatal("Unable to change dir %s: %s\n", dir, strerror(errno));
    std::vector<std::string> const directories = treat_entries(stream, dir, action);
    if (closedir(stream.release()) != 0)
        fatal("Unable to close dir %s: %s\n", dir, strerror(errno));

    for (std::string const& directory : directories)
        treat_directory(directory.c_str(), action, true, true);
    if (fchdir(way_back.get()) != 0 || way_back.close_now() != 0)
        fatal("Unable to restore & close current dir: %s\n", strerror(errno));
    if (itself)
        action.directory(dir);
}

void treat_tree(char const* dir, TreeAction const& action, int force_self)
{
    ErrnoKeeper const keeper;
    struct stat info = {};
    if (lstat(dir, &info) != 0) {
        if (!action.removes || !vanished())
            fatal("Unable to get entry %s: %s\n", dir, strerror(errno));
        return;
    }
    if (S_ISDIR(info.st_mode))
        treat_directory(dir, action, action.removes, force_self != 0);
    else if (concerns(action, info.st_mode))
        action.argument(dir);
}

bool change_owner(char const* name, uid_t uid, gid_t gid)
{
    return lchown(name, uid, gid) == 0 || vanished();
}

bool change_mode(char const* name, mode_t mode)
{
    return fchmodat(AT_FDCWD, name, mode, AT_SYMLINK_NOFOLLOW) == 0 || vanished();
}

bool remove_file(char const* name)
{
    return unlink(name) == 0 || vanished();
}

} // namespace

void chown_tree(char const* dir, char const* user, char const* group, int force_self)
{
    uid_t const uid = get_user_id(user);
    gid_t const gid = get_group_id(group);
    auto const file = [=](char const* name) {
        if (!change_owner(name, uid, gid))
            fatal("Unable to chown directory entry %s: %s\n", name, strerror(errno));
    };
    auto const directory = [=](char const* name) {
        if (!change_owner(name, uid, gid))
            fatal("Unable to chown dir %s: %s\n", name, strerror(errno));
    };
    treat_tree(dir, {false, file, file, directory}, force_self);
}

void chmod_tree(char const* dir, mode_t file_mode, mode_t dir_mode, int force_self)
{
    auto const argument = [=](char const* name) {
        if (!change_mode(name, file_mode))
            fatal("Unable to chmod entry %s: %s\n", name, strerror(errno));
    };
    auto const entry = [=](char const* name) {
        if (!change_mode(name, file_mode))
            fatal("Unable to chmod directory entry %s: %s\n", name, strerror(errno));
    };
    auto const directory = [=](char const* name) {
        if (!change_mode(name, dir_mode))
            fatal("Unable to chmod dir %s: %s\n", name, strerror(errno));
    };
    treat_tree(dir, {false, argument, entry, directory}, force_self);
}

int tree_set_perms(char const* dir, char const* user, char const* group, mode_t file_mode,
                   mode_t dir_mode, int force_self)
{
    chown_tree(dir, user, group, force_self);
    chmod_tree(dir, file_mode, dir_mode, force_self);
    return 0;
}

void rm_tree(char const* dir, int force_self)
{
    auto const argument = [](char const* name) {
        if (!remove_file(name))
            fatal("Unable to unlink entry %s: %s\n", name, strerror(errno));
    };
    auto const entry = [](char const* name) {
        if (!remove_file(name))
            fatal("Unable to unlink directory entry %s: %s\n", name, strerror(errno));
    };
    auto const directory = [](char const* name) {
        if (rmdir(name) != 0 && !vanished())
            fatal("Unable to remove dir %s: %s\n", name, strerror(errno));
    };
    treat_tree(dir, {true, argument, entry, directory}, force_self);
}
