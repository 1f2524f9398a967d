#include "mail/lib/accounts/account_files.h"

#include "lib/report/owned.h"
#include "lib/report/product_log.h"

#include <sqlite3.h>

#include <algorithm>
#include <array>
#include <cerrno>
#include <cstdlib>
#include <cstring>
#include <set>
#include <string>

#include <fcntl.h>
#include <sys/stat.h>
#include <syslog.h>
#include <unistd.h>

namespace {

constexpr std::array<std::string_view, 4> suffixes = {"", "-journal", "-wal", "-shm"};

// Only root may read a new database until its rights are set.
constexpr mode_t new_database = 0600;

// Of opening a file that somebody makes and removes meanwhile.
constexpr int most_attempts = 100;

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

// The look comes before the opening, so that no FIFO or device is ever opened.
int open_whole_file(char const* path, int flags, mode_t mode)
{
    for (int attempt = 0; attempt < most_attempts; ++attempt) {
        OpenDescriptor const place(open(path, O_PATH | O_NOFOLLOW | O_CLOEXEC));
        if (place.get() >= 0) {
            if (!is_whole_file(place.get()))
                return -1;
            std::string const held = "/proc/self/fd/" + std::to_string(place.get());
            return open(held.c_str(), flags & ~(O_CREAT | O_NOFOLLOW));
        }
        if (errno != ENOENT || !(flags & O_CREAT))
            return -1;
        int const made = open(path, flags | O_EXCL | O_NOFOLLOW, mode);
        if (made >= 0 || errno != EEXIST)
            return made;
    }
    return -1;
}

// The write-ahead log or its index that was opened last, or -1.
int shared_file = -1;

// The database that the path is the log or the index of; empty for any other file.
std::string database_of(std::string_view path)
{
    for (std::string_view const suffix : {"-wal", "-shm"})
        if (path.ends_with(suffix))
            return std::string(path.substr(0, path.size() - suffix.size()));
    return "";
}

// Gives a log or index the owner and group of the database, and the mode that its readers need.
bool give_to_readers(int fd, struct stat const& database)
{
    struct stat now = {};
    if (fstat(fd, &now) != 0)
        return false;
    if ((now.st_uid != database.st_uid || now.st_gid != database.st_gid) &&
        fchown(fd, database.st_uid, database.st_gid) != 0)
        return false;
    mode_t const mode = account_log_mode(database.st_mode);
    return (now.st_mode & 07777) == mode || fchmod(fd, mode) == 0;
}

// Once a file: a command may open it many times.
void report_unshared(char const* path)
{
    static std::set<std::string> reported;
    if (reported.insert(path).second)
        orvek_log(LOG_ERR, "Unable to let the readers of the mail authentication DB use %s: %s",
                  path, strerror(errno));
}

// Who reads the database must write both files too: a reader takes its locks in the index, and
// recovers the log. The tool can go on without, but log-ins may not.
void share(int fd, char const* path, std::string const& database)
{
    struct stat info = {};
    if (lstat(database.c_str(), &info) != 0 || !S_ISREG(info.st_mode))
        return;
    shared_file = fd;
    ErrnoKeeper const keeper;
    if (!give_to_readers(fd, info))
        report_unshared(path);
}

int open_file(char const* path, int flags, mode_t mode)
{
    shared_file = -1;
    if (!AccountFiles::guard())
        return open(path, flags, mode);
    if (AccountFiles::areDirectory(path))
        return open(path, flags | O_DIRECTORY | O_NOFOLLOW);
    if (!AccountFiles::contain(path))
        return flags & O_EXCL ? create_temporary_file(path, flags) : refused(EACCES);
    if (AccountFiles::areDatabase(path))
        mode &= new_database;
    int const file = open_whole_file(path, flags, mode);
    if (file >= 0 && flags & O_RDWR)
        AccountFiles::remember(path, file);
    std::string const database = database_of(path);
    if (file >= 0 && !database.empty())
        share(file, path, database);
    return file;
}

// SQLite gives a new log or index the mode of the database, which may only be read.
int change_mode(int fd, mode_t mode)
{
    return AccountFiles::guard() && fd == shared_file ? 0 : fchmod(fd, mode);
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
        {"fchmod", call(change_mode)},
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

mode_t account_log_mode(mode_t database)
{
    mode_t const reading = database & 0444;
    return reading | reading >> 1;
}

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
            files->writing = fd;
            return;
        }
}

void AccountFiles::leaveWritingToRoot() const
{
    struct stat info = {};
    if (writing < 0 || geteuid() != 0 || fstat(writing, &info) != 0)
        return;
    mode_t const mode = account_database_mode(info);
    if ((info.st_mode & 07777) != mode)
        fchmod(writing, mode);
}
