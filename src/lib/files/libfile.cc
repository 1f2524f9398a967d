#include "lib/files/libfile.h"

#include "lib/beneath/entry.h"
#include "lib/beneath/opened_file.h"
#include "lib/beneath/place.h"
#include "lib/report/failure.h"
#include "lib/report/liblog.h"
#include "lib/report/owned.h"
#include "lib/text/orvek_chch.h"
#include "lib/text/strlcpy.h"

#include <cerrno>
#include <cstring>

#include <fcntl.h>
#include <pwd.h>
#include <sys/stat.h>
#include <unistd.h>

namespace {

constexpr mode_t new_file_mode = 0644;
// The longest file that is read for its one line.
constexpr off_t most_of_a_text = 1 << 20;

bool make_file(char const* file, int flags)
{
    char const* name = nullptr;
    OpenDescriptor const parent = open_parent(file, name);
    if (parent.get() < 0)
        return false;
    OpenDescriptor made =
        open_or_make_beneath(parent.get(), name, O_WRONLY | flags, any_size, new_file_mode);
    return made.get() >= 0 && made.close_now() == 0;
}

int set_owner_and_mode(char const* file, OpenDescriptor const& taken, Rights const& rights)
{
    if (taken.get() < 0 || set_rights(taken.get(), {rights.uid, rights.gid, same_mode}) != 0)
        return failure(-1, "ERROR: unable to chown %s: %s\n", file, strerror(errno));
    if (set_rights(taken.get(), mode_only(rights.mode)) != 0)
        return failure(-1, "ERROR: unable to chmod %s: %s\n", file, strerror(errno));
    return 0;
}

OpenDescriptor take(char const* file)
{
    char const* name = nullptr;
    OpenDescriptor const parent = open_parent(file, name);
    return parent.get() < 0 ? OpenDescriptor(-1) : take_entry_beneath(parent.get(), name);
}

// Keeps errno.
bool exists(char const* path)
{
    ErrnoKeeper const keeper;
    struct stat info = {};
    return stat(path, &info) == 0;
}

// The first line with its newline; empty at the end of the file, null after a failure.
CString first_line(FILE* stream)
{
    char* line = nullptr;
    std::size_t size = 0;
    ssize_t const length = getline(&line, &size, stream);
    CString owned(line);
    if (length < 0 && !feof(stream))
        return nullptr;
    return length < 0 ? CString(strdup("")) : std::move(owned);
}

} // namespace

int create_empty_file(char const* file)
{
    if (!make_file(file, O_TRUNC))
        return failure(-1, "Unable to truncate or create file %s: %s", file, strerror(errno));
    return 0;
}

int create_file(char const* file)
{
    if (!make_file(file, 0))
        return failure(-1, "Unable to create file %s: %s", file, strerror(errno));
    return 0;
}

int rename_dir(char const* oDir, char const* nDir)
{
    int const before = errno;
    struct stat info = {};
    char const* from = nullptr;
    char const* to = nullptr;
    OpenDescriptor const source = open_parent(oDir, from);
    bool const is_there = source.get() >= 0 && look_beneath(source.get(), from, info) == 0;
    if (!is_there && errno == ENOENT) {
        errno = before;
        return 0;
    }
    OpenDescriptor const target = open_parent(nDir, to);
    if (source.get() >= 0 && target.get() >= 0 &&
        rename_new_beneath(source.get(), from, target.get(), to) == 0)
        return 0;
    if (errno != EEXIST)
        return failure(-1, "Remaming %s to %s failed: %s\n", oDir, nDir, strerror(errno));
    errno = before;
    return failure(-1, "Directory rename error: target directory %s already exists.\n", nDir);
}

int file_set_perms(char const* file_name, uid_t file_uid, gid_t file_gid, mode_t file_mode)
{
    int const before = errno;
    OpenDescriptor const taken = take(file_name);
    if (taken.get() < 0 && errno == ENOENT) {
        errno = before;
        return 0;
    }
    return set_owner_and_mode(file_name, taken, {file_uid, file_gid, file_mode});
}

int file_set_user_mode(char const* file, char const* user, mode_t mode)
{
    int const before = errno;
    errno = 0;
    passwd const* const found = getpwnam(user);
    if (!found)
        return failure(-1, "user %s not found", user);
    errno = before;
    return set_owner_and_mode(file, take(file), {found->pw_uid, found->pw_gid, mode});
}

int p_fclose(FILE* stream)
{
    if (fclose(stream) != 0)
        return failure(-1, "Unable to close the file: %s\n", strerror(errno));
    return 0;
}

int find_file(char const** target, char const* const* paths)
{
    while (*paths && !exists(*paths))
        ++paths;
    *target = *paths;
    return *target ? 1 : 0;
}

int get_string_from_file(char* buff, std::size_t buflen, char const* file)
{
    char const* name = nullptr;
    OpenDescriptor const parent = open_parent(file, name);
    OpenFile const stream =
        parent.get() < 0 ? nullptr : read_file_beneath(parent.get(), name, most_of_a_text);
    if (!stream)
        return failure(-1, "Unable to open file %s: %s\n", file, strerror(errno));
    CString const line = first_line(stream.get());
    if (!line)
        return failure(-1, "Unable to read line from file: %s\n", strerror(errno));
    char const* const text = orvek_trim(line.get());
    if (strlen(text) >= buflen)
        return failure(-1, "The buffer too short\n");
    memset(buff, 0, buflen);
    strlcpy(buff, text, buflen);
    return 0;
}
