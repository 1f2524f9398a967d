// strangers_tree - a tree that somebody else owns, and files outside it
//
// root is open on <dir>/root, which has "sub" with "file" ("text") and "sub/deep". outside is a
// directory beside it with "file" and "sub/file" ("theirs"). Tests of EachWay run three times: with
// openat2, without it as on an old kernel, and with a filter that refuses it.

#ifndef MAILVEK_TESTS_UNIT_LIB_BENEATH_STRANGERS_TREE_H
#define MAILVEK_TESTS_UNIT_LIB_BENEATH_STRANGERS_TREE_H

#include "lib/beneath/place.h"

#include "support/call_faults.h"
#include "support/temp_dir.h"

#include <gtest/gtest.h>

#include <filesystem>
#include <string>

class StrangersTree : public ::testing::Test
{
protected:
    StrangersTree()
    {
        std::filesystem::create_directories(path("sub/deep"));
        writeFile(path("sub/file"), "text");
        std::filesystem::create_directories(outside + "/sub");
        writeFile(outside + "/file", "theirs");
        writeFile(outside + "/sub/file", "theirs");
        errno = 0;
    }

    std::string path(std::string const& name) const { return dir / ("root/" + name); }

    // Replaces a directory by a link to outside.
    void swapForLink(std::string const& name) const
    {
        std::filesystem::rename(path(name), path(name + ".away"));
        std::filesystem::create_directory_symlink(outside, path(name));
    }

    void expectOutsideUntouched() const
    {
        EXPECT_EQ(readFile(outside + "/file"), "theirs");
        EXPECT_EQ(readFile(outside + "/sub/file"), "theirs");
        EXPECT_EQ(std::distance(std::filesystem::recursive_directory_iterator(outside), {}), 3);
    }

    TempDir const dir;
    std::string const outside = dir / "outside";

private:
    bool const made = std::filesystem::create_directory(dir / "root");

protected:
    OpenDescriptor const root = open_root((dir / "root").c_str());
};

class EachWay : public StrangersTree, public ::testing::WithParamInterface<int>
{
    NoNewCalls const none{GetParam()};
};

#define INSTANTIATE_EACH_WAY(suite)                                                                \
    INSTANTIATE_TEST_SUITE_P(Walk, suite, ::testing::Values(0, ENOSYS, EPERM))

// Expects a failure with this error.
#define EXPECT_BARRED(call, error)                                                                 \
    do {                                                                                           \
        errno = 0;                                                                                 \
        EXPECT_LT((call), 0);                                                                      \
        EXPECT_EQ(errno, error);                                                                   \
    } while (0)

#endif
