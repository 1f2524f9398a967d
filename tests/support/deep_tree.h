// deep_tree - directories nested deeper than a process has descriptors
//
// make_deep_tree makes that many nested directories called d, the first one in directory.

#ifndef MAILVEK_TESTS_SUPPORT_DEEP_TREE_H
#define MAILVEK_TESTS_SUPPORT_DEEP_TREE_H

#include <gtest/gtest.h>

#include <string>

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

inline void make_deep_tree(std::string const& directory, int levels)
{
    int here = open(directory.c_str(), O_PATH | O_DIRECTORY);
    for (int i = 0; i < levels && here >= 0; ++i) {
        int const above = here;
        here = mkdirat(above, "d", 0755) == 0 ? openat(above, "d", O_PATH | O_DIRECTORY) : -1;
        close(above);
    }
    EXPECT_GE(here, 0);
    close(here);
}

#endif
