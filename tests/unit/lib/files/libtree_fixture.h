// libtree_fixture - the tree for the tests of libtree

#ifndef MAILVEK_TESTS_UNIT_LIB_FILES_LIBTREE_FIXTURE_H
#define MAILVEK_TESTS_UNIT_LIB_FILES_LIBTREE_FIXTURE_H

#include "lib/files/libtree.h"

#include "support/child_run.h"
#include "support/report.h"
#include "support/temp_dir.h"

#include <gtest/gtest.h>

#include <filesystem>
#include <functional>
#include <string>

#include <pwd.h>
#include <sys/stat.h>
#include <unistd.h>

inline constexpr mode_t file_mode = 0640;
inline constexpr mode_t dir_mode = 0750;

// A tree with a file on each of two levels, a link out of it, and a pipe.
class Tree : public ::testing::Test
{
protected:
    void SetUp() override
    {
        std::filesystem::create_directories(tree + "/sub");
        writeFile(tree + "/file", "");
        writeFile(tree + "/sub/file", "");
        std::filesystem::create_directory(outside);
        writeFile(outside + "/file", "");
        std::filesystem::create_directory_symlink(outside, tree + "/link");
        std::filesystem::create_symlink(outside + "/file", tree + "/sub/link");
        ASSERT_EQ(mkfifo((tree + "/pipe").c_str(), 0600), 0);
        for (std::string const& name : {outside + "/file", tree + "/file", tree + "/sub/file"})
            ASSERT_EQ(chmod(name.c_str(), 0600), 0);
        for (std::string const& name : {outside, tree, tree + "/sub"})
            ASSERT_EQ(chmod(name.c_str(), 0700), 0);
    }

    void expectOutsideUntouched() const
    {
        EXPECT_EQ(modeOf(outside), 0700U);
        EXPECT_EQ(modeOf(outside + "/file"), 0600U);
    }

    void changeModes(std::string const& path, int force_self = 1) const
    {
        chmod_tree(path.c_str(), file_mode, dir_mode, force_self);
    }

    // The report with which code ends the process.
    static std::string lastWords(std::function<void()> const& code)
    {
        auto const run = inChild([&] {
            code();
            return 7;
        });
        EXPECT_EQ(run.status, 1);
        EXPECT_EQ(run.out, run.err);
        return run.err;
    }

    TempDir dir;
    std::string const tree = dir / "tree";
    std::string const outside = dir / "outside";
};

inline std::string ownUser()
{
    passwd const* const self = getpwuid(getuid());
    return self ? self->pw_name : "";
}

inline void changeOwner(std::string const& path, int force_self = 1)
{
    chown_tree(path.c_str(), ownUser().c_str(), std::to_string(getgid()).c_str(), force_self);
}

inline void removeTree(std::string const& path, int force_self = 1)
{
    rm_tree(path.c_str(), force_self);
}

inline std::string report(std::string const& text, int error)
{
    return withErrno(text + ": " + strerror(error) + "\n", error);
}

inline struct stat infoOf(std::string const& path)
{
    struct stat info = {};
    EXPECT_EQ(lstat(path.c_str(), &info), 0) << path;
    return info;
}

#endif
