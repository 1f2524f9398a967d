// rights - kind, mode and owner of files, as "drwx------ popuser:popuser"
//
// rightsOf does not follow a link, and gives "missing" for a missing file. rightsBelow gives the
// rights of everything below a directory, by relative path.

#ifndef MAILVEK_TESTS_SUPPORT_RIGHTS_H
#define MAILVEK_TESTS_SUPPORT_RIGHTS_H

#include <filesystem>
#include <map>
#include <string>

#include <grp.h>
#include <pwd.h>
#include <sys/stat.h>

inline std::string rightsOf(std::string const& path)
{
    struct stat info = {};
    if (lstat(path.c_str(), &info) != 0)
        return "missing";
    std::string text = S_ISDIR(info.st_mode) ? "d" : S_ISLNK(info.st_mode) ? "l" : "-";
    for (int bit = 8; bit >= 0; --bit)
        text += info.st_mode >> bit & 1U ? "xwr"[bit % 3] : '-';
    passwd const* const user = getpwuid(info.st_uid);
    group const* const users = getgrgid(info.st_gid);
    return text + ' ' + (user ? user->pw_name : std::to_string(info.st_uid)) + ':' +
           (users ? users->gr_name : std::to_string(info.st_gid));
}

inline std::map<std::string, std::string> rightsBelow(std::string const& directory)
{
    std::map<std::string, std::string> rights;
    for (auto const& entry : std::filesystem::recursive_directory_iterator(directory))
        rights[entry.path().lexically_relative(directory)] = rightsOf(entry.path());
    return rights;
}

#endif
