#include "mail/lib/accounts/account_log_files.h"

#include "lib/report/owned.h"
#include "lib/report/product_log.h"

#include <cerrno>
#include <cstdio>
#include <cstring>
#include <ctime>
#include <set>
#include <string>

#include <fcntl.h>
#include <syslog.h>
#include <unistd.h>

namespace {

// Of opening a file that somebody makes, gives away or removes meanwhile.
constexpr int most_attempts = 100;
constexpr timespec between_attempts = {0, 1'000'000};

bool is_log_of(struct stat const& info, uid_t owner)
{
    if (!S_ISREG(info.st_mode) || info.st_nlink > 1)
        errno = ELOOP;
    else if (owner != any_owner && info.st_uid != owner)
        errno = EACCES;
    else
        return true;
    return false;
}

std::string held_path(int fd)
{
    return "/proc/self/fd/" + std::to_string(fd);
}

// A command may open a file many times.
bool is_first_report(char const* path)
{
    static std::set<std::string> reported;
    return reported.insert(path).second;
}

bool has_suffix(std::string_view path, std::string_view suffix)
{
    return path.ends_with(suffix);
}

// A journal is for its writer alone, and has the mode that SQLite gives.
mode_t mode_of(char const* path, mode_t mode, struct stat const& database)
{
    return has_suffix(path, "-journal") ? mode & 0777 : account_log_mode(database.st_mode);
}

// Gives the file owner and group of the database, and the mode. False and errno, reported.
bool give_to_readers(int fd, char const* path, mode_t mode, struct stat const& database)
{
    struct stat now = {};
    bool given = fstat(fd, &now) == 0;
    if (given && (now.st_uid != database.st_uid || now.st_gid != database.st_gid))
        given = fchown(fd, database.st_uid, database.st_gid) == 0;
    if (given && (now.st_mode & 07777) != mode)
        given = fchmod(fd, mode) == 0;
    ErrnoKeeper const keeper;
    if (!given && is_first_report(path))
        orvek_log(LOG_ERR, "Unable to let the readers of the mail authentication DB use %s: %s",
                  path, strerror(errno));
    return given;
}

// Opens an existing file. A file of root's keeps its rights: somebody may have moved it there. The
// tool can go on if rights cannot be given, but log-ins may not.
int open_existing(char const* path, int flags, mode_t mode, struct stat const& database)
{
    int const file = open_whole_file(path, flags, database.st_uid);
    if (file >= 0 && database.st_uid != 0 && !has_suffix(path, "-journal"))
        static_cast<void>(give_to_readers(file, path, mode, database));
    return file;
}

bool has_no_unnamed_files(int error)
{
    return error == EOPNOTSUPP || error == EISDIR || error == EINVAL;
}

// All of these make a file that replaces nothing: false and EEXIST when there is one of that name.
bool make_unnamed(std::string const& directory, char const* path, mode_t mode,
                  struct stat const& database)
{
    OpenDescriptor const file(
        open(directory.c_str(), O_TMPFILE | O_RDWR | O_CLOEXEC, S_IRUSR | S_IWUSR));
    return file.get() >= 0 && give_to_readers(file.get(), path, mode, database) &&
           linkat(AT_FDCWD, held_path(file.get()).c_str(), AT_FDCWD, path, AT_SYMLINK_FOLLOW) == 0;
}

// For a file system that has no unnamed files. What a kill left under the other name is removed.
bool make_renamed(char const* path, mode_t mode, struct stat const& database)
{
    std::string const beside = path + std::string(".new");
    OpenDescriptor const file(open(
        beside.c_str(), O_CREAT | O_EXCL | O_NOFOLLOW | O_RDWR | O_CLOEXEC, S_IRUSR | S_IWUSR));
    if (file.get() >= 0 && give_to_readers(file.get(), path, mode, database) &&
        renameat2(AT_FDCWD, beside.c_str(), AT_FDCWD, path, RENAME_NOREPLACE) == 0)
        return true;
    ErrnoKeeper const keeper;
    unlink(beside.c_str());
    return false;
}

bool make(char const* path, mode_t mode, struct stat const& database)
{
    std::string const name = path;
    std::string const directory = name.substr(0, name.rfind('/') + 1) + ".";
    return make_unnamed(directory, path, mode, database) ||
           (has_no_unnamed_files(errno) && make_renamed(path, mode, database));
}

// Whether another attempt may find what this one did not: another process is making the file.
bool may_change(int error)
{
    return error == EEXIST || error == ENOENT || error == EACCES;
}

} // namespace

mode_t account_log_mode(mode_t database)
{
    mode_t const reading = database & 0444;
    return reading | reading >> 1;
}

int open_whole_file(char const* path, int flags, uid_t owner)
{
    // The look comes before the opening, and what is opened is what was looked at.
    OpenDescriptor const place(open(path, O_PATH | O_NOFOLLOW | O_CLOEXEC));
    struct stat info = {};
    if (place.get() < 0 || fstat(place.get(), &info) != 0 || !is_log_of(info, owner))
        return -1;
    // Without O_NONBLOCK the open would wait for a lease that the file's owner holds.
    return open(held_path(place.get()).c_str(),
                (flags & ~(O_CREAT | O_EXCL | O_NOFOLLOW)) | O_NONBLOCK);
}

int open_log_file(char const* path, int flags, mode_t mode, struct stat const& database)
{
    mode_t const wanted = mode_of(path, mode, database);
    for (int attempt = 0; attempt < most_attempts; ++attempt) {
        int const file = open_existing(path, flags, wanted, database);
        if (file >= 0 || (errno == ENOENT && !(flags & O_CREAT)))
            return file;
        if (errno == ENOENT && make(path, wanted, database))
            continue;
        if (!may_change(errno))
            return -1;
        ErrnoKeeper const keeper;
        clock_nanosleep(CLOCK_MONOTONIC, 0, &between_attempts, nullptr);
    }
    ErrnoKeeper const keeper;
    if (errno == EACCES && is_first_report(path))
        orvek_log(LOG_ERR,
                  "%s does not belong to the owner of the mail authentication DB, it is not used",
                  path);
    return -1;
}
