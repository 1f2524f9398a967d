#include "mail/lib/quota/maildirpp_messages.h"

#include "lib/beneath/entry.h"
#include "lib/beneath/listing.h"
#include "lib/beneath/place.h"
#include "lib/files/dot_entry.h"
#include "lib/report/form_path.h"
#include "lib/report/owned.h"
#include "mail/lib/quota/maildirpp_folders.h"

#include <algorithm>
#include <cerrno>
#include <cstdlib>
#include <cstring>

#include <fcntl.h>
#include <sys/stat.h>

namespace {

constexpr char size_mark[] = ",S=";
// No mailbox has more. The limit ends the count if somebody keeps making messages.
constexpr fcount_t most_messages = 4'000'000;

bool size_in_name(char const* name, sizequota_t* size)
{
    while ((name = strstr(name, size_mark)) != nullptr) {
        char const* const digits = name + sizeof size_mark - 1;
        char* end = nullptr;
        errno = 0;
        *size = strtoll(digits, &end, 10);
        if (end != digits && errno == 0 && (*end == ':' || *end == '\0'))
            return true;
        name = end;
    }
    return false;
}

enum class Found
{
    message,
    nothing,
    failure,
};

Found size_on_disk(int dir, char const* name, sizequota_t* size)
{
    struct stat info = {};
    if (look_beneath(dir, name, info) != 0)
        return errno == ENOENT || errno == ENOTDIR ? Found::nothing : Found::failure;
    *size = info.st_size;
    return Found::message;
}

Found measure(int dir, char const* name, sizequota_t* size)
{
    if (is_dot_entry(name))
        return Found::nothing;
    return size_in_name(name, size) ? Found::message : size_on_disk(dir, name, size);
}

OpenDir open_messages(char const* dir)
{
    OpenDescriptor opened = open_directory_beneath(AT_FDCWD, dir);
    OpenDir stream(opened.get() < 0 ? nullptr : fdopendir(opened.get()));
    if (stream)
        static_cast<void>(opened.release());
    return stream;
}

} // namespace

int process_maildir_subdir(char const* dir, sizequota_t* size, fcount_t* count, time_t* mtime)
{
    OpenDir const stream = open_messages(dir);
    struct stat info = {};
    if (!stream || fstat(dirfd(stream.get()), &info) != 0)
        return 1;
    *mtime = std::max(*mtime, info.st_mtime);
    for (;;) {
        errno = 0;
        dirent const* const entry = readdir(stream.get());
        if (!entry)
            return errno == 0 ? 1 : 0;
        sizequota_t bytes = 0;
        Found const found = measure(dirfd(stream.get()), entry->d_name, &bytes);
        if (found == Found::failure)
            return 0;
        if (found == Found::message) {
            add_size(size, bytes);
            if (++*count > most_messages) {
                errno = EFBIG;
                return 0;
            }
        }
    }
}

int process_maildirpp_subfolder(char const* dir, sizequota_t* size, fcount_t* count, time_t* mtime)
{
    char path[path_size];
    // Deliberate: maildirfolder is never read, but its path must fit. Then the shorter names of the
    // two directories fit too.
    if (!form_path(path, "%s/maildirfolder", dir)) {
        errno = ENAMETOOLONG;
        return 0;
    }
    for (char const* const subdir : {"new", "cur"})
        if (!form_path(path, "%s/%s", dir, subdir) ||
            process_maildir_subdir(path, size, count, mtime) == 0)
            return 0;
    return 1;
}

int get_maildirpp_messages_usage(sizequota_t* size, fcount_t* count, time_t* mtime)
{
    OpenDir const stream = open_listing(AT_FDCWD);
    if (!stream)
        return 0;
    *size = 0;
    *count = 0;
    if (process_maildir_subdir("new", size, count, mtime) == 0 ||
        process_maildir_subdir("cur", size, count, mtime) == 0)
        return 0;
    for (fcount_t entries = 0; entries < most_messages; ++entries) {
        errno = 0;
        dirent const* const entry = readdir(stream.get());
        if (!entry)
            return errno == 0 ? 1 : 0;
        if (entry->d_type == DT_DIR && is_maildirpp_subfolder(entry->d_name) &&
            process_maildirpp_subfolder(entry->d_name, size, count, mtime) == 0)
            return 0;
    }
    errno = EFBIG;
    return 0;
}
