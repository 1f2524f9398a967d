#include "mail/lib/home/dot_qmail_lines.h"

#include "lib/beneath/entry.h"
#include "lib/beneath/opened_file.h"
#include "lib/beneath/rights.h"
#include "lib/beneath/temporary_file.h"
#include "lib/files/op_locks.h"
#include "lib/report/failure.h"
#include "lib/report/form_path.h"
#include "lib/report/liblog.h"
#include "mail/lib/home/mail_tree.h"

#include <cerrno>
#include <cstdio>
#include <cstring>

#include <fcntl.h>
#include <pwd.h>
#include <sys/stat.h>

namespace {

constexpr mode_t delivery_mode = 0600;
// Others make the file, so its set-id bits are not copied.
constexpr mode_t mode_bits = 0777;
constexpr std::size_t piece_size = 4095; // fgets gives one character less

[[nodiscard]] int open_failure(char const* file)
{
    return failure(1, "Unable to open file %s: %s\n", file, strerror(errno));
}

bool equals(char const* piece, char const* line)
{
    std::size_t const length = strcspn(piece, "\n");
    return strlen(line) == length && memcmp(line, piece, length) == 0;
}

// Closes both files.
int copy_other_lines(OpenFile from, char const* file, OpenFile to, char const* line)
{
    char piece[piece_size];
    while (fgets(piece, sizeof piece, from.get()))
        if (!equals(piece, line) && fputs(piece, to.get()) < 0)
            fatal("cannot write a line to %s.tmp", file);
    // After a read error the copy is incomplete and must not replace the file.
    if (ferror(from.get()))
        return failure(1, "Unable to read file %s: %s\n", file, strerror(errno));
    if (fclose(from.release()) != 0)
        return failure(1, "Unable to close file %s: %s\n", file, strerror(errno));
    if (fclose(to.release()) != 0)
        return failure(1, "Unable to close file %s.tmp: %s\n", file, strerror(errno));
    return 0;
}

int restore_rights(int temporary, char const* file, struct stat const& old)
{
    if (set_rights(temporary, {old.st_uid, old.st_gid, same_mode}) != 0)
        return failure(1, "file_str: ERROR: Unable to chown file %s: %s", file, strerror(errno));
    if (set_rights(temporary, mode_only(old.st_mode & mode_bits)) != 0)
        return failure(1, "file_str: ERROR: Unable to chmod file %s: %s", file, strerror(errno));
    return 0;
}

} // namespace

DotQmail::Home::Home(char const* file)
    : directory(open_directory_of(file, &name)), error(directory.get() < 0 ? errno : 0)
{
}

DotQmail::DotQmail(char const* file) : file(file), home(file)
{
}

template<typename Change>
int DotQmail::under_lock(Change change) const
{
    OwnedLock lock(mk_lock(file, 1));
    if (!is_locked(lock.get())) {
        messlog2(0, 0, "Error occurred while locking the file %s: %s\n", file, strerror(errno));
        return 1;
    }
    int const result = change();
    if (rm_lock(lock.release()) != 0)
        return failure(1, "Error occurred while unlocking the file %s: %s\n", file,
                       strerror(errno));
    return result;
}

// Keeps errno when the file is missing, since that is not a failure.
int DotQmail::look_at(struct stat& info, bool& exists) const
{
    int const before = errno;
    errno = home.error;
    exists = home.error == 0 && look_beneath(home.directory.get(), home.name, info) == 0;
    if (!exists && errno != ENOENT)
        return failure(1, "file_str: Unable to stat file %s: %s\n", file, strerror(errno));
    errno = before;
    return 0;
}

int DotQmail::append(char const* line) const
{
    struct stat info = {};
    bool exists = false;
    if (look_at(info, exists) != 0)
        return 1;
    errno = home.error != 0 ? home.error : errno;
    auto const added = static_cast<off_t>(strlen(line) + 1);
    OpenFile to =
        home.error != 0 ? nullptr
        : exists
            ? stream_of(open_file_beneath(home.directory.get(), home.name, O_WRONLY | O_APPEND,
                                          largest_delivery_file - added),
                        "a")
            : stream_of(make_file_beneath(home.directory.get(), home.name, delivery_mode), "a");
    if (!to)
        return open_failure(file);
    if (fputs(line, to.get()) < 0 || fputc('\n', to.get()) == EOF)
        return failure(1, "Unable to fputs to file %s: %s\n", file, strerror(errno));
    if (fclose(to.release()) != 0)
        return failure(1, "Unable to close file %s: %s\n", file, strerror(errno));
    return 0;
}

int DotQmail::rewrite_without(char const* line) const
{
    int const dir = home.directory.get();
    OpenFile from = read_file_beneath(dir, home.name, largest_delivery_file);
    // Owner and mode are those of the file that is copied, whatever has its name by now.
    struct stat old = {};
    if (!from || fstat(fileno(from.get()), &old) != 0)
        return open_failure(file);
    TemporaryFile temporary(dir, home.name, ".tmp", old.st_mode & mode_bits);
    if (temporary.get() < 0)
        return failure(1, "Unable to open file %s.tmp: %s\n", file, strerror(errno));
    OpenDescriptor const held(fcntl(temporary.get(), F_DUPFD_CLOEXEC, 0));
    OpenFile to = temporary.write_stream();
    int result = to && held.get() >= 0
                     ? 0
                     : failure(1, "Unable to open file %s.tmp: %s\n", file, strerror(errno));
    if (result == 0)
        result = copy_other_lines(std::move(from), file, std::move(to), line);
    if (result == 0)
        result = restore_rights(held.get(), file, old);
    if (result == 0 && temporary.replace() != 0)
        result = failure(1, "Unable to rename file %s: %s\n", file, strerror(errno));
    if (result != 0)
        temporary.keep();
    return result;
}

void DotQmail::drop_line(char const* line) const
{
    ErrnoKeeper const keeper;
    static_cast<void>(remove_line(line));
}

int DotQmail::put_line(char const* line) const
{
    drop_line(line);
    if (under_lock([&] { return append(line); }) != 0)
        return failure(-1, "Unable to add string to %s file.", file);
    return 0;
}

int DotQmail::remove_line(char const* line) const
{
    return under_lock([&] {
        struct stat info = {};
        bool exists = false;
        if (look_at(info, exists) != 0)
            return 1;
        if (exists)
            return rewrite_without(line);
        // Deliberate: no report. Callers remove a line from a file that need not exist.
        errno = ENOENT;
        return 1;
    });
}

// Keeps errno when the file is missing, since that is not a failure.
bool DotQmail::may_replace(Rights& rights) const
{
    int const before = errno;
    errno = home.error;
    OpenDescriptor const there =
        home.error != 0 ? OpenDescriptor(-1)
                        : take_file_beneath(home.directory.get(), home.name, largest_delivery_file);
    struct stat old = {};
    if (there.get() < 0 && (home.error != 0 || errno != ENOENT))
        return false;
    if (there.get() >= 0 && fstat(there.get(), &old) != 0)
        return false;
    if (there.get() >= 0)
        rights = {old.st_uid, old.st_gid, old.st_mode & mode_bits};
    errno = before;
    return true;
}

int DotQmail::reset_to(char const* line) const
{
    // A new file is root's alone, even if its rights cannot be set later.
    Rights rights = mode_only(delivery_mode);
    if (!may_replace(rights))
        return failure(-1, "Unable to open %s: %s", file, strerror(errno));
    TemporaryFile beside(home.directory.get(), home.name, delivery_mode);
    if (beside.get() < 0)
        return failure(-1, "Unable to open %s: %s", file, strerror(errno));
    if (dprintf(beside.get(), "%s\n", line) < 0 || set_rights(beside.get(), rights) != 0 ||
        beside.replace() != 0)
        return failure(-1, "Unable to write to %s: %s", file, strerror(errno));
    return 0;
}

int DotQmail::set_rights_of_mail_user() const
{
    int const before = errno;
    errno = 0;
    passwd const* const user = getpwnam("popuser");
    if (!user)
        return failure(-1, "user %s not found", "popuser");
    errno = before;
    OpenDescriptor const taken =
        take_file_beneath(home.directory.get(), home.name, largest_delivery_file);
    Rights const owner = {user->pw_uid, user->pw_gid, same_mode};
    if (taken.get() < 0 || set_rights(taken.get(), owner) != 0)
        return failure(-1, "ERROR: unable to chown %s: %s\n", file, strerror(errno));
    if (set_rights(taken.get(), mode_only(delivery_mode)) != 0)
        return failure(-1, "ERROR: unable to chmod %s: %s\n", file, strerror(errno));
    return 0;
}
