#include "mail/lib/quota/maildirpp_folders.h"

#include "lib/report/failure.h"
#include "lib/report/form_path.h"
#include "lib/report/liblog.h"
#include "lib/report/owned.h"

#include <algorithm>
#include <cerrno>
#include <cstring>

#include <sys/stat.h>

namespace {

int raise_mtime(char const* dir, char const* subdir, time_t* mtime)
{
    char path[path_size];
    if (!form_path(path, "%s/%s", dir, subdir)) {
        errno = ENAMETOOLONG;
        return failure(0, "Maildir subfolder '%s' name too long to fit the allowed buffer", subdir);
    }
    struct stat info = {};
    if (stat(path, &info) != 0) {
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
    return stat(entry->d_name, &info) == 0 && S_ISDIR(info.st_mode);
}

int raise_mtime_by(dirent const* entry, char const* maildir, time_t* mtime)
{
    if (!is_maildirpp_subfolder(entry->d_name))
        return 1;
    if (!is_directory(entry))
        return failure(1, "Bad/unrecognized entry %s within Maildir folder %s\n", entry->d_name,
                       maildir);
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
    constexpr char maildir[] = ".";
    if (get_maildirpp_folder_mtime(maildir, mtime) == 0)
        return 0;
    OpenDir const stream(opendir(maildir));
    if (!stream)
        return failure(0, "Unable to open Maildir folder. Has it just been removed?");
    for (;;) {
        errno = 0;
        dirent const* const entry = readdir(stream.get());
        if (!entry)
            return errno == 0 ? 1 : 0;
        if (raise_mtime_by(entry, maildir, mtime) == 0)
            return 0;
    }
}
