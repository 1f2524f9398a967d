#include "mail/lib/accounts/account_files.h"

#include "lib/report/owned.h"
#include "mail/lib/accounts/account_log_files.h"

#include <sqlite3.h>

#include <algorithm>
#include <array>
#include <cerrno>
#include <cstdlib>
#include <string>

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

namespace {

constexpr std::array<std::string_view, 4> suffixes = {"", "-journal", "-wal", "-shm"};

// Only root may read a new database until its rights are set.
constexpr mode_t new_database = 0600;

int refused(int error)
{
    errno = error;
    return -1;
}

// The temporary file created last. SQLite unlinks it at once and keeps it open.
std::string& temporary_file()
{
    static std::string path;
    return path;
}

// SQLite opens only its temporary files exclusively.
int create_temporary_file(char const* path, int flags)
{
    temporary_file() = path;
    return open(path, flags | O_NOFOLLOW, S_IRUSR | S_IWUSR);
}

// Opens the database, or makes an empty one.
int open_database(char const* path, int flags, mode_t mode)
{
    int file = open_whole_file(path, flags, any_owner);
    if (file < 0 && errno == ENOENT && flags & O_CREAT)
        file = open(path, flags | O_EXCL | O_NOFOLLOW, mode & new_database);
    if (file < 0 && errno == EEXIST) // made by another command meanwhile
        file = open_whole_file(path, flags, any_owner);
    if (file >= 0)
        AccountFiles::remember(path, file);
    return file;
}

int open_file(char const* path, int flags, mode_t mode)
{
    if (!AccountFiles::guard())
        return open(path, flags, mode);
    if (AccountFiles::areDirectory(path))
        return open(path, flags | O_DIRECTORY | O_NOFOLLOW);
    if (!AccountFiles::contain(path))
        return flags & O_EXCL ? create_temporary_file(path, flags) : refused(EACCES);
    if (AccountFiles::areDatabase(path))
        return open_database(path, flags, mode);
    struct stat database = {};
    if (!AccountFiles::lookAtDatabase(path, &database))
        return refused(EACCES);
    return open_log_file(path, flags, mode, database);
}

int close_file(int fd)
{
    AccountFiles::forget(fd);
    return close(fd);
}

// SQLite gives log, index and journal the owner and the mode of the database, also when they have
// been there before, and the database may only be read.
int change_owner(int fd, uid_t owner, gid_t group)
{
    return AccountFiles::guard() ? 0 : fchown(fd, owner, group);
}

int change_mode(int fd, mode_t mode)
{
    return AccountFiles::guard() ? 0 : fchmod(fd, mode);
}

int look_at(char const* path, struct stat* info)
{
    if (!AccountFiles::guard())
        return stat(path, info);
    if (AccountFiles::contain(path))
        return lstat(path, info);
    // SQLite also asks for the directories of temporary files.
    int const result = stat(path, info);
    return result == 0 && !S_ISDIR(info->st_mode) ? refused(ENOENT) : result;
}

int delete_file(char const* path)
{
    if (AccountFiles::guard() && !AccountFiles::contain(path) && path != temporary_file())
        return refused(EACCES);
    return unlink(path);
}

template<class Function>
sqlite3_syscall_ptr call(Function* function)
{
    return reinterpret_cast<sqlite3_syscall_ptr>(function);
}

struct SystemCall
{
    char const* name;
    sqlite3_syscall_ptr function;
};

void replace_system_calls()
{
    static bool replaced = false;
    if (replaced)
        return;
    sqlite3_vfs* const vfs = sqlite3_vfs_find("unix");
    SystemCall const calls[] = {
        {"open", call(open_file)},   {"stat", call(look_at)},       {"unlink", call(delete_file)},
        {"close", call(close_file)}, {"fchmod", call(change_mode)}, {"fchown", call(change_owner)},
    };
    for (auto const& [name, function] : calls)
        vfs->xSetSystemCall(vfs, name, function);
    replaced = true;
}

std::string directory_of(std::string const& path)
{
    std::size_t const slash = path.rfind('/');
    if (slash == std::string::npos)
        return ".";
    return slash == 0 ? "/" : path.substr(0, slash);
}

std::string name_in(std::string const& path)
{
    return path.substr(path.rfind('/') + 1);
}

std::string resolved(std::string const& path)
{
    CString const real(realpath(directory_of(path).c_str(), nullptr));
    if (!real)
        return path;
    std::string const directory = real.get();
    return (directory == "/" ? "" : directory) + '/' + name_in(path);
}

} // namespace

mode_t account_database_mode(struct stat const& database)
{
    mode_t writing = S_IWOTH;
    if (database.st_uid != 0)
        writing |= S_IWUSR;
    if (database.st_gid != 0)
        writing |= S_IWGRP;
    return database.st_mode & 07777 & ~writing;
}

AccountFiles* AccountFiles::first = nullptr;

AccountFiles::AccountFiles(char const* path)
    : database(resolved(path)), directory(directory_of(database)), next(first)
{
    replace_system_calls();
    first = this;
}

AccountFiles::~AccountFiles()
{
    AccountFiles** link = &first;
    while (*link != this)
        link = &(*link)->next;
    *link = next;
}

bool AccountFiles::contain(std::string_view path)
{
    for (auto const* files = first; files; files = files->next)
        if (path.starts_with(files->database) &&
            std::ranges::count(suffixes, path.substr(files->database.size())) > 0)
            return true;
    return false;
}

bool AccountFiles::areDirectory(std::string_view path)
{
    for (auto const* files = first; files; files = files->next)
        if (path == files->directory)
            return true;
    return false;
}

bool AccountFiles::areDatabase(std::string_view path)
{
    for (auto const* files = first; files; files = files->next)
        if (path == files->database)
            return true;
    return false;
}

void AccountFiles::remember(std::string_view path, int fd)
{
    for (auto* files = first; files; files = files->next)
        if (path == files->database) {
            files->opened = fd;
            return;
        }
}

void AccountFiles::forget(int fd)
{
    for (auto* files = first; files; files = files->next)
        if (files->opened == fd)
            files->opened = -1;
}

bool AccountFiles::lookAtDatabase(std::string_view path, struct stat* info)
{
    for (auto const* files = first; files; files = files->next)
        if (files->opened >= 0 && path.starts_with(files->database))
            return fstat(files->opened, info) == 0;
    return false;
}

void AccountFiles::leaveWritingToRoot() const
{
    struct stat info = {};
    if (opened < 0 || geteuid() != 0 || fstat(opened, &info) != 0)
        return;
    mode_t const mode = account_database_mode(info);
    if ((info.st_mode & 07777) != mode)
        fchmod(opened, mode);
}
