#include "mail/lib/quota/maildirpp_folders.h"

#include "lib/beneath/entry.h"
#include "lib/beneath/listing.h"
#include "lib/report/failure.h"
#include "lib/report/form_path.h"
#include "lib/report/liblog.h"
#include "lib/report/owned.h"

#include <algorithm>
#include <cerrno>
#include <cstring>

#include <fcntl.h>
#include <sys/stat.h>

namespace {

constexpr char maildir[] = ".";
// No honest Maildir has more. Its owner fills it, and must not keep the tool searching.
constexpr int most_entries = 100'000;
// And he must not fill the log.
constexpr int most_reports = 100;

int raise_mtime(char const* dir, char const* subdir, time_t* mtime)
{
    char path[path_size];
    if (!form_path(path, "%s/%s", dir, subdir)) {
        errno = ENAMETOOLONG;
        return failure(0, "Maildir subfolder '%s' name too long to fit the allowed buffer", subdir);
    }
    struct stat info = {};
    bool const is_here = strcmp(dir, maildir) == 0;
    if (look_beneath(AT_FDCWD, is_here ? subdir : path, info) != 0 || !S_ISDIR(info.st_mode)) {
        errno = EIO;
        return failure(0, "Maildir subfolder '%s' stat failed", subdir);
    }
    *mtime = std::max(*mtime, info.st_mtime);
    return 1;
}

bool is_directory(dirent const* entry)
{
    if (entry->d_type != DT_UNKNOWN)
        return entry->d_type == DT_DIR;
    struct stat info = {};
    return look_beneath(AT_FDCWD, entry->d_name, info) == 0 && S_ISDIR(info.st_mode);
}

int raise_mtime_by(dirent const* entry, int* reports, time_t* mtime)
{
    if (!is_maildirpp_subfolder(entry->d_name))
        return 1;
    if (!is_directory(entry)) {
        if (++*reports <= most_reports)
            messlog2(0, 0, "Bad/unrecognized entry %s within Maildir folder %s\n", entry->d_name,
                     maildir);
        return 1;
    }
    return get_maildirpp_folder_mtime(entry->d_name, mtime);
}

} // namespace

bool is_maildirpp_subfolder(char const* name)
{
    return name[0] == '.' && name[1] != '\0' && name[1] != '.' && strcmp(name + 1, "Trash") != 0;
}

int get_maildirpp_folder_mtime(char const* dir, time_t* mtime)
{
    return raise_mtime(dir, "cur", mtime) != 0 && raise_mtime(dir, "new", mtime) != 0 ? 1 : 0;
}

int get_maildirpp_latest_mtime(time_t* mtime)
{
    if (get_maildirpp_folder_mtime(maildir, mtime) == 0)
        return 0;
    OpenDir const stream = open_listing(AT_FDCWD);
    if (!stream)
        return failure(0, "Unable to open Maildir folder. Has it just been removed?");
    int reports = 0;
    for (int entries = 0; entries < most_entries; ++entries) {
        errno = 0;
        dirent const* const entry = readdir(stream.get());
        if (!entry)
            return errno == 0 ? 1 : 0;
        if (raise_mtime_by(entry, &reports, mtime) == 0)
            return 0;
    }
    errno = EFBIG;
    return 0;
}
