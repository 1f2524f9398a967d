#include "lib/files/file_str.h"

#include "lib/files/line_edit.h"
#include "lib/files/op_locks.h"
#include "lib/report/failure.h"
#include "lib/report/liblog.h"

#include <cerrno>
#include <cstring>

#include <sys/stat.h>
#include <unistd.h>

namespace {

// Keeps errno when the file is missing, since that is not a failure.
int look_at(char const* filename, struct stat& info, bool& exists)
{
    int const before = errno;
    exists = stat(filename, &info) == 0;
    if (!exists && errno != ENOENT) {
        return failure(1, "file_str: Unable to stat file %s: %s\n", filename, strerror(errno));
    }
    errno = before;
    return 0;
}

int restore_owner_and_mode(char const* filename, struct stat const& info)
{
    // chown before chmod, because chown clears the set-id bits.
    if (chown(filename, info.st_uid, info.st_gid) != 0) {
        return failure(1, "file_str: ERROR: Unable to chown file %s: %s", filename,
                       strerror(errno));
    }
    if (chmod(filename, info.st_mode & 07777) != 0) {
        return failure(1, "file_str: ERROR: Unable to chmod file %s: %s", filename,
                       strerror(errno));
    }
    return 0;
}

int edit_under_lock(char const* filename, char const* const* strs, file_action_t cmd,
                    file_pos_t set)
{
    struct stat info = {};
    bool exists = false;
    if (look_at(filename, info, exists) != 0)
        return 1;
    if (edit_lines(filename, exists ? &info : nullptr, strs, cmd, set) != 0)
        return 1;
    return exists ? restore_owner_and_mode(filename, info) : 0;
}

} // namespace

int file_strings(char const* filename, char const* const* strs, file_action_t cmd, file_pos_t set)
{
    OwnedLock lock(mk_lock(filename, 1));
    if (!is_locked(lock.get())) {
        messlog2(0, 0, "Error occurred while locking the file %s: %s\n", filename, strerror(errno));
        return 1;
    }
    int const result = edit_under_lock(filename, strs, cmd, set);
    if (rm_lock(lock.release()) != 0) {
        return failure(1, "Error occurred while unlocking the file %s: %s\n", filename,
                       strerror(errno));
    }
    return result;
}

int file_str(char const* filename, char const* str, file_action_t cmd, file_pos_t set)
{
    char const* const strs[] = {str, nullptr};
    return file_strings(filename, strs, cmd, set);
}
