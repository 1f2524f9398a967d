#include "lib/files/libfile.h"

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

bool make_file(char const* file, int flags)
{
    OpenDescriptor made(open(file, O_WRONLY | O_CREAT | flags, new_file_mode));
    return made.get() >= 0 && made.close_now() == 0;
}

// The error of stat or lstat, or 0, without a trace in errno.
int error_of(decltype(stat)* look, char const* path)
{
    ErrnoKeeper const keeper;
    struct stat info = {};
    return look(path, &info) == 0 ? 0 : errno;
}

int set_owner_and_mode(char const* file, uid_t uid, gid_t gid, mode_t mode)
{
    // In this order, for chown takes away the set-id bits.
    if (chown(file, uid, gid) != 0)
        return failure(-1, "ERROR: unable to chown %s: %s\n", file, strerror(errno));
    if (chmod(file, mode) != 0)
        return failure(-1, "ERROR: unable to chmod %s: %s\n", file, strerror(errno));
    return 0;
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
    if (error_of(lstat, oDir) == ENOENT)
        return 0;
    if (error_of(lstat, nDir) == 0)
        return failure(-1, "Directory rename error: target directory %s already exists.\n", nDir);
    if (rename(oDir, nDir) != 0)
        return failure(-1, "Remaming %s to %s failed: %s\n", oDir, nDir, strerror(errno));
    return 0;
}

int file_set_perms(char const* file_name, uid_t file_uid, gid_t file_gid, mode_t file_mode)
{
    if (error_of(stat, file_name) == ENOENT)
        return 0;
    return set_owner_and_mode(file_name, file_uid, file_gid, file_mode);
}

int file_set_user_mode(char const* file, char const* user, mode_t mode)
{
    int const before = errno;
    errno = 0;
    passwd const* const found = getpwnam(user);
    if (!found)
        return failure(-1, "user %s not found", user);
    errno = before;
    return set_owner_and_mode(file, found->pw_uid, found->pw_gid, mode);
}

int p_fclose(FILE* stream)
{
    if (fclose(stream) != 0)
        return failure(-1, "Unable to close the file: %s\n", strerror(errno));
    return 0;
}

int find_file(char const** target, char const* const* paths)
{
    while (*paths && error_of(stat, *paths) != 0)
        ++paths;
    *target = *paths;
    return *target ? 1 : 0;
}

int get_string_from_file(char* buff, std::size_t buflen, char const* file)
{
    OpenFile const stream(fopen(file, "r"));
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
