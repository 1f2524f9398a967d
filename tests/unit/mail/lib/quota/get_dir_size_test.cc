#include "mail/lib/quota/get_dir_size.h"

#include "support/call_faults.h"
#include "support/deep_tree.h"
#include "support/fd_census.h"
#include "support/temp_dir.h"

#include <gtest/gtest.h>

#include <cerrno>
#include <cstdlib>
#include <filesystem>

#include <unistd.h>

namespace fs = std::filesystem;

namespace {

// The size of one file by lstat.
sizequota_t sizeOf(std::string const& path, bool blocks)
{
    struct stat info = {};
    EXPECT_EQ(lstat(path.c_str(), &info), 0) << path;
    return blocks ? info.st_blocks * 512 : info.st_size;
}

class GetDirSize : public ::testing::Test
{
protected:
    void SetUp() override
    {
        fs::create_directories(tree + "/sub/deep");
        writeFile(tree + "/file", std::string(10000, 'x'));
        writeFile(tree + "/sub/.hidden", std::string(20, 'x'));
        writeFile(tree + "/sub/deep/file", std::string(300, 'x'));
        writeFile(dir / "outside", std::string(5000, 'x'));
        fs::create_symlink(dir / "outside", tree + "/sub/link");
        fs::create_directory_symlink(dir.path(), tree + "/sub/up");
        errno = 0;
    }

    sizequota_t sum(bool blocks) const
    {
        sizequota_t all = sizeOf(tree, blocks);
        for (auto const& entry : fs::recursive_directory_iterator(tree))
            all += sizeOf(entry.path(), blocks);
        return all;
    }

    TempDir const dir;
    std::string const tree = dir / "tree";
};

} // namespace

TEST_F(GetDirSize, AddsUpATreeWithoutFollowingLinks)
{
    EXPECT_EQ(get_dir_size(tree.c_str(), 0), sum(false));
}

TEST_F(GetDirSize, TakesBlocksOnRequest)
{
    fs::resize_file(tree + "/file", 1000000);
    EXPECT_EQ(get_dir_size(tree.c_str(), 1), sum(true));
    EXPECT_LT(get_dir_size(tree.c_str(), 1), get_dir_size(tree.c_str(), 0));
}

TEST_F(GetDirSize, MeasuresASingleFileOrTheLinkItself)
{
    EXPECT_EQ(get_dir_size((tree + "/file").c_str(), 0), 10000);
    EXPECT_EQ(get_dir_size((tree + "/file").c_str(), 1), sizeOf(tree + "/file", true));
    EXPECT_EQ(get_dir_size((tree + "/sub/up").c_str(), 0), sizeOf(tree + "/sub/up", false));
}

TEST_F(GetDirSize, FailsForWhatIsNotThere)
{
    EXPECT_EQ(get_dir_size((tree + "/none").c_str(), 0), -1);
    EXPECT_EQ(errno, ENOENT);
}

TEST_F(GetDirSize, FailsForATreeItCannotExamineOpenOrRead)
{
    struct Failing
    {
        char const* call;
        int number;
        int blocks;
    };
    for (Failing const& failing :
         {Failing{"open", 1, 0}, {"fstatat", 1, 0}, {"syscall", 1, 1}, {"readdir", 3, 0}}) {
        CallFailure const failure(failing.call, EIO, failing.number);
        EXPECT_EQ(get_dir_size(tree.c_str(), failing.blocks), -1) << failing.call;
        EXPECT_EQ(errno, EIO);
    }
}

TEST_F(GetDirSize, PassesOverWhatCannotBeLookedAt)
{
    fs::remove_all(tree + "/sub");
    CallFailure const failure("fstatat", EIO, 2);
    EXPECT_EQ(get_dir_size(tree.c_str(), 0), sum(false) - 10000);
}

TEST_F(GetDirSize, PassesOverDirectoriesThatCannotBeOpened)
{
    sizequota_t const rest = sizeOf(tree, false) + 10000;
    // The second call by number opens a directory in the tree.
    {
        CallFailure const failure("syscall", EACCES, 2);
        EXPECT_EQ(get_dir_size(tree.c_str(), 0), rest);
    }
    BeforeCall const swap("syscall", 2, [&] {
        fs::rename(tree + "/sub", dir / "sub");
        fs::create_directory_symlink(dir / "sub", tree + "/sub");
    });
    EXPECT_EQ(get_dir_size(tree.c_str(), 0), rest);
}

TEST_F(GetDirSize, StopsWithWhatItHasWithoutAWayUp)
{
    make_deep_tree(tree + "/sub", 40);
    sizequota_t const whole = get_dir_size(tree.c_str(), 0);
    CallFailure const failure("openat", EIO);
    sizequota_t const part = get_dir_size(tree.c_str(), 0);
    EXPECT_GT(part, 0);
    EXPECT_LT(part, whole);
}

TEST_F(GetDirSize, ComesBackAndClosesEverything)
{
    std::string const before = fs::current_path();
    auto const open = openDescriptors();
    EXPECT_GT(get_dir_size(tree.c_str(), 0), 0);
    EXPECT_EQ(fs::current_path(), before);
    EXPECT_EQ(openDescriptors(), open);
}

TEST_F(GetDirSize, CountsWhatIsBelowTheWorkingDirectory)
{
    std::string const before = fs::current_path();
    fs::current_path(tree);
    EXPECT_EQ(count_cur_dir(0), sum(false) - sizeOf(tree, false));
    EXPECT_EQ(count_cur_dir(1) * 512, sum(true) - sizeOf(tree, true));
    fs::current_path(before);
}

TEST_F(GetDirSize, CountsATreeDeeperThanItsDescriptors)
{
    make_deep_tree(tree + "/sub", 2000);
    EXPECT_GT(get_dir_size(tree.c_str(), 0), 2000);
    ASSERT_EQ(system(("rm -r " + tree + "/sub/d").c_str()), 0);
}

TEST_F(GetDirSize, HoldsAtNoFifo)
{
    sizequota_t const before = get_dir_size(tree.c_str(), 0);
    ASSERT_EQ(mkfifo((tree + "/sub/fifo").c_str(), 0666), 0);
    EXPECT_GE(get_dir_size(tree.c_str(), 0), before);
    EXPECT_EQ(get_dir_size((tree + "/sub/fifo").c_str(), 0), 0);
}

TEST_F(GetDirSize, CountsPathsOfAnyLength)
{
    std::string const before = fs::current_path();
    fs::current_path(tree);
    sizequota_t expected = sum(false) - sizeOf(tree, false);
    std::string const name(200, 'd');
    for (int depth = 0; depth < 25; ++depth) {
        fs::create_directory(name);
        fs::current_path(name);
    }
    // On some file systems a directory grows with its content.
    for (int depth = 0; depth < 25; ++depth) {
        fs::current_path("..");
        expected += sizeOf(name, false);
    }
    expected += sizeOf(tree, false);
    fs::current_path(before);
    EXPECT_EQ(get_dir_size(tree.c_str(), 0), expected);
}
