// fd_census - the open descriptors of this process, to compare before and after

#ifndef MAILVEK_TESTS_SUPPORT_FD_CENSUS_H
#define MAILVEK_TESTS_SUPPORT_FD_CENSUS_H

#include <cstdlib>
#include <set>

#include <dirent.h>

inline std::set<int> openDescriptors()
{
    std::set<int> open;
    DIR* const dir = opendir("/proc/self/fd");
    while (dirent const* const entry = readdir(dir))
        if (entry->d_name[0] != '.')
            open.insert(atoi(entry->d_name));
    open.erase(dirfd(dir));
    closedir(dir);
    return open;
}

#endif
