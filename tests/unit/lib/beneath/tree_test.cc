#include "lib/beneath/tree.h"

#include "strangers_tree.h"

#include "lib/beneath/entry.h"

#include "support/fd_census.h"

#include <fcntl.h>
#include <sys/resource.h>
#include <unistd.h>

namespace fs = std::filesystem;

using TreeBeneath = StrangersTree;
using TreeEachWay = EachWay;
INSTANTIATE_EACH_WAY(TreeEachWay);

namespace {

constexpr int depth = 20'000;

// Makes a tree of that many levels, each called "d", with a file in the deepest.
void makeDeep(int root, char const* name, int levels)
{
    int here = dup(root);
    for (int i = 0; i < levels; ++i) {
        char const* const next = i == 0 ? name : "d";
        ASSERT_EQ(mkdirat(here, next, 0700), 0);
        OpenDescriptor const above(here);
        here = openat(above.get(), next, O_RDONLY | O_DIRECTORY);
        ASSERT_GE(here, 0);
    }
    close(openat(here, "file", O_WRONLY | O_CREAT, 0600));
    close(here);
}

int remove(int root, char const* path, TreeTop top = TreeTop::with)
{
    return remove_tree_beneath(root, path, top);
}

int setModes(int root, char const* path, TreeTop top = TreeTop::with)
{
    return set_tree_rights_beneath(root, path, mode_only(0604), mode_only(0705), top);
}

// Limits the process to few descriptors while it lives.
class FewDescriptors
{
public:
    FewDescriptors()
    {
        getrlimit(RLIMIT_NOFILE, &before);
        rlimit const few = {60, before.rlim_max};
        setrlimit(RLIMIT_NOFILE, &few);
    }
    ~FewDescriptors() { setrlimit(RLIMIT_NOFILE, &before); }
    FewDescriptors(FewDescriptors const&) = delete;
    FewDescriptors& operator=(FewDescriptors const&) = delete;

private:
    rlimit before = {};
};

} // namespace

TEST_P(TreeEachWay, IsRemovedWithItsTopOrWithout)
{
    EXPECT_EQ(remove(root.get(), "sub", TreeTop::without), 0);
    EXPECT_TRUE(fs::is_empty(path("sub")));
    EXPECT_EQ(remove(root.get(), "sub"), 0);
    EXPECT_FALSE(fs::exists(path("sub")));
    EXPECT_EQ(remove(root.get(), "sub"), 0);
    writeFile(path("file"), "");
    errno = 0;
    EXPECT_EQ(remove(root.get(), "file", TreeTop::without), 0);
    EXPECT_EQ(remove(root.get(), "file", TreeTop::without), 0);
    EXPECT_EQ(errno, 0);
    EXPECT_FALSE(fs::exists(path("file")));
}

TEST_P(TreeEachWay, IsRemovedWithItsLinksButNotTheirTargets)
{
    fs::create_directory_symlink(outside, path("sub/way"));
    fs::create_symlink(outside + "/file", path("sub/deep/link"));
    fs::create_hard_link(outside + "/file", path("sub/hard"));
    ASSERT_EQ(mkfifo(path("sub/fifo").c_str(), 0600), 0);
    EXPECT_EQ(remove(root.get(), "sub"), 0);
    EXPECT_TRUE(fs::is_empty(dir / "root"));
    expectOutsideUntouched();
}

TEST_P(TreeEachWay, IsNotReachedThroughLinksOrLeavingNames)
{
    fs::create_directory_symlink(outside, path("way"));
    EXPECT_BARRED(remove(root.get(), "way/sub"), ELOOP);
    EXPECT_BARRED(setModes(root.get(), "way/sub"), ELOOP);
    for (char const* const name : {"", "..", "../outside", "sub/..", "/tmp"})
        EXPECT_BARRED(remove(root.get(), name), EINVAL);
    EXPECT_EQ(remove(root.get(), "way"), 0);
    expectOutsideUntouched();
}

TEST_F(TreeBeneath, IsRemovedThoughItIsTwentyThousandLevelsDeep)
{
    // In memory if possible, because each level takes time on a disk.
    char const* const memory = "/dev/shm";
    OpenDescriptor const quick = open_root(fs::is_directory(memory) ? memory : dir.path().c_str());
    std::string const name = "mailvek-test-" + std::to_string(getpid());
    makeDeep(quick.get(), name.c_str(), depth);
    auto const before = openDescriptors();
    FewDescriptors const few;
    EXPECT_EQ(remove(quick.get(), name.c_str()), 0);
    EXPECT_BARRED(remove_directory_beneath(quick.get(), name.c_str()), ENOENT);
    EXPECT_EQ(openDescriptors(), before);
}

TEST_F(TreeBeneath, IsRemovedWhereManyDirectoriesLieDeep)
{
    makeDeep(root.get(), "top", 40);
    std::string deepest = path("top");
    for (int i = 1; i < 40; ++i)
        deepest += "/d";
    for (int i = 0; i < 60; ++i) {
        fs::create_directories(deepest + "/" + std::to_string(i) + "/one/two");
        writeFile(deepest + "/" + std::to_string(i) + "/file", "");
    }
    EXPECT_EQ(setModes(root.get(), "top"), 0);
    EXPECT_EQ(modeOf(deepest + "/59/one/two"), 0705U);
    EXPECT_EQ(modeOf(deepest + "/7/file"), 0604U);
    EXPECT_EQ(remove(root.get(), "top"), 0);
    EXPECT_FALSE(fs::exists(path("top")));
}

TEST_F(TreeBeneath, IsNotLeftByALinkForADirectory)
{
    BeforeCall const swap("syscall", 2, [&] { swapForLink("sub/deep"); });
    EXPECT_BARRED(remove(root.get(), "sub"), ELOOP);
    expectOutsideUntouched();
}

TEST_F(TreeBeneath, IsNotLeftThroughADirectoryMovedMeanwhile)
{
    makeDeep(root.get(), "top", 40);
    std::string deepest = path("top");
    for (int i = 1; i < 35; ++i)
        deepest += "/d";
    // The walk first goes back through ".." after it has reached the deepest level.
    BeforeCall const move("unlinkat", 1, [&] { fs::rename(deepest, outside + "/moved"); });
    EXPECT_BARRED(remove(root.get(), "top"), ESTALE);
    fs::remove_all(outside + "/moved");
    expectOutsideUntouched();
}

TEST_F(TreeBeneath, IsLookedThroughAgainForWhatCameMeanwhile)
{
    BeforeCall const add("unlinkat", 2, [&] { writeFile(path("sub/deep/late"), ""); });
    EXPECT_EQ(remove(root.get(), "sub"), 0);
    EXPECT_FALSE(fs::exists(path("sub")));
}

TEST_F(TreeBeneath, IsGivenUpWhenSomebodyKeepsAddingToIt)
{
    int late = 0;
    TreeSteps const steps = {
        [](int at, char const* name, mode_t) { return unlinkat(at, name, 0); },
        [&](int, char const*, int) {
            writeFile(path("sub/deep/") + std::to_string(++late), "");
            return again;
        },
    };
    TreeTrouble trouble = {};
    EXPECT_NE(walk_tree(root.get(), "sub/deep", steps, TreeTop::with, trouble), 0);
    EXPECT_EQ(late, 4);
    EXPECT_EQ(trouble.where, TreeTrouble::directory);
}

TEST_P(TreeEachWay, GetsItsModesAndLeavesOtherKindsAlone)
{
    fs::create_symlink(outside + "/file", path("sub/link"));
    fs::create_directory_symlink(outside, path("sub/way"));
    fs::create_hard_link(outside + "/file", path("sub/hard"));
    ASSERT_EQ(mkfifo(path("sub/fifo").c_str(), 0600), 0);
    EXPECT_EQ(setModes(root.get(), "sub"), 0);
    EXPECT_EQ(modeOf(path("sub")), 0705U);
    EXPECT_EQ(modeOf(path("sub/deep")), 0705U);
    EXPECT_EQ(modeOf(path("sub/file")), 0604U);
    EXPECT_EQ(modeOf(path("sub/fifo")), 0600U);
    EXPECT_NE(modeOf(outside), 0705U);
    EXPECT_NE(modeOf(outside + "/file"), 0604U);
    EXPECT_EQ(errno, 0);
}

TEST_F(TreeBeneath, GivesNoRightsToASwappedInLink)
{
    fs::remove(path("sub/deep"));
    BeforeCall const swap("fstat", 2, [&] {
        fs::remove(path("sub/file"));
        fs::create_symlink(outside + "/file", path("sub/file"));
    });
    EXPECT_EQ(setModes(root.get(), "sub"), 0);
    EXPECT_NE(modeOf(outside + "/file"), 0604U);
}

TEST_F(TreeBeneath, TellsWhereAWalkHasEnded)
{
    TreeSteps const steps = {[](int, char const*, mode_t) { return 0; },
                             [](int, char const*, int) { return 0; }};
    struct
    {
        char const* call;
        int number;
        TreeTrouble::Where where;
    } const failures[] = {
        {"fstatat", 1, TreeTrouble::look},
        {"syscall", 1, TreeTrouble::open},
        {"fstat", 1, TreeTrouble::open},
        {"readdir", 1, TreeTrouble::read},
    };
    for (auto const& failure : failures) {
        TreeTrouble trouble = {};
        CallFailure const failing(failure.call, EIO, failure.number);
        EXPECT_BARRED(walk_tree(root.get(), "sub", steps, TreeTop::with, trouble), EIO);
        EXPECT_EQ(trouble.where, failure.where) << failure.call;
        EXPECT_EQ(trouble.name, "sub");
        EXPECT_TRUE(trouble.argument);
    }
    for (char const* const call : {"unlinkat", "openat"}) {
        makeDeep(root.get(), "top", 40);
        CallFailure const failing(call, EIO);
        EXPECT_BARRED(remove(root.get(), "top"), EIO);
        fs::remove_all(path("top"));
    }
}
