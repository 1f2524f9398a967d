#include "mail/lib/accounts/account_files.h"

#include "lib/report/owned.h"

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

bool is_whole_file(int fd)
{
    struct stat info = {};
    if (fstat(fd, &info) != 0)
        return false;
    if (S_ISREG(info.st_mode) && info.st_nlink <= 1)
        return true;
    errno = ELOOP;
    return false;
}

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

int open_file(char const* path, int flags, mode_t mode)
{
    if (!AccountFiles::guard())
        return open(path, flags, mode);
    if (AccountFiles::areDirectory(path))
        return open(path, flags | O_DIRECTORY | O_NOFOLLOW);
    if (!AccountFiles::contain(path))
        return flags & O_EXCL ? create_temporary_file(path, flags) : refused(EACCES);
    if (AccountFiles::areDatabase(path))
        mode &= new_database;
    OpenDescriptor file(open(path, flags | O_NOFOLLOW | O_NONBLOCK, mode));
    return file.get() >= 0 && is_whole_file(file.get()) ? file.release() : -1;
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
        {"open", call(open_file)},
        {"stat", call(look_at)},
        {"unlink", call(delete_file)},
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
