#include "libtree_fixture.h"

#include "lib/files/libtree.h"

#include "support/call_faults.h"
#include "support/child_run.h"
#include "support/fd_census.h"
#include "support/host_test.h"
#include "support/report.h"
#include "support/temp_dir.h"

#include <gtest/gtest.h>

#include <filesystem>

#include <pwd.h>
#include <sys/stat.h>
#include <unistd.h>

namespace fs = std::filesystem;

namespace {

using RmTree = Tree;
using ChmodTree = Tree;
using ChownTree = Tree;

class LibtreeOnHost : public HostTest
{
};

// Makes that many nested directories, with a file in the last.
void makeDeepTree(std::string const& top, int levels)
{
    auto const before = fs::current_path();
    fs::create_directory(top);
    fs::current_path(top);
    std::string const name(200, 'd');
    for (int level = 0; level < levels; ++level) {
        ASSERT_EQ(mkdir(name.c_str(), 0700), 0);
        ASSERT_EQ(chdir(name.c_str()), 0);
    }
    writeFile("file", "");
    fs::current_path(before);
}

} // namespace

TEST_F(RmTree, RemovesADirectoryWithAllThatIsInIt)
{
    removeTree(tree);
    EXPECT_FALSE(fs::exists(tree));
}

TEST_F(RmTree, RemovesLinksAndNotWhatTheyLeadTo)
{
    removeTree(tree);
    expectOutsideUntouched();
    EXPECT_TRUE(fs::exists(outside + "/file"));
}

TEST_F(RmTree, LeavesTheDirectoryItselfUnlessForced)
{
    removeTree(tree, 0);
    EXPECT_TRUE(fs::is_directory(tree));
    EXPECT_TRUE(fs::is_empty(tree));
}

TEST_F(RmTree, ReturnsInSilenceForAMissingPath)
{
    auto const run = inChild([&] {
        removeTree(dir / "none");
        return errno;
    });
    EXPECT_EQ(run.status, 0);
    EXPECT_EQ(run.err, "");
}

TEST_F(RmTree, RemovesAFileWhateverItsKindAndWhateverTheForce)
{
    removeTree(tree + "/file", 0);
    removeTree(tree + "/pipe", 0);
    EXPECT_FALSE(fs::exists(tree + "/file"));
    EXPECT_FALSE(fs::exists(tree + "/pipe"));
}

TEST_F(RmTree, RemovesALinkToADirectoryAndNotTheDirectory)
{
    removeTree(tree + "/link");
    EXPECT_FALSE(fs::is_symlink(tree + "/link"));
    EXPECT_TRUE(fs::exists(outside + "/file"));
}

TEST_F(RmTree, RemovesADanglingLink)
{
    fs::create_symlink(dir / "none", tree + "/dangling");
    removeTree(tree + "/dangling");
    EXPECT_FALSE(fs::is_symlink(tree + "/dangling"));
}

TEST_F(RmTree, RemovesAManyThousandEntries)
{
    for (int i = 0; i < 5000; ++i)
        writeFile(tree + "/" + std::to_string(i), "");
    removeTree(tree);
    EXPECT_FALSE(fs::exists(tree));
}

TEST_F(RmTree, TakesPathsOfAnyLength)
{
    makeDeepTree(dir / "deep", 50); // more than 10,000 bytes
    removeTree(dir / "deep");
    EXPECT_FALSE(fs::exists(dir / "deep"));
}

TEST_F(RmTree, TakesARelativePath)
{
    auto const before = fs::current_path();
    fs::current_path(dir.path());
    removeTree("tree");
    fs::current_path(before);
    EXPECT_FALSE(fs::exists(tree));
}

TEST_F(Tree, RestoresTheWorkingDirectoryAndClosesAllItsFiles)
{
    auto const before = fs::current_path();
    auto const open_before = openDescriptors();
    errno = 0;
    changeOwner(tree);
    changeModes(tree);
    removeTree(tree);
    EXPECT_EQ(errno, 0);
    EXPECT_EQ(fs::current_path(), before);
    EXPECT_EQ(openDescriptors(), open_before);
}

TEST_F(ChmodTree, ChangesFilesAndDirectories)
{
    changeModes(tree);
    EXPECT_EQ(modeOf(tree), dir_mode);
    EXPECT_EQ(modeOf(tree + "/sub"), dir_mode);
    EXPECT_EQ(modeOf(tree + "/file"), file_mode);
    EXPECT_EQ(modeOf(tree + "/sub/file"), file_mode);
}

TEST_F(ChmodTree, LeavesLinksAndOtherKindsAlone)
{
    changeModes(tree);
    EXPECT_EQ(modeOf(tree + "/pipe"), 0600U);
    expectOutsideUntouched();
    changeModes(tree + "/link");
    changeModes(tree + "/sub/link");
    changeModes(tree + "/pipe");
    EXPECT_EQ(modeOf(tree + "/pipe"), 0600U);
    expectOutsideUntouched();
}

TEST_F(ChmodTree, LeavesTheDirectoryItselfUnlessForced)
{
    changeModes(tree, 0);
    EXPECT_EQ(modeOf(tree), 0700U);
    EXPECT_EQ(modeOf(tree + "/sub"), dir_mode);
}

TEST_F(ChmodTree, ChangesASingleFile)
{
    changeModes(tree + "/file", 0);
    EXPECT_EQ(modeOf(tree + "/file"), file_mode);
}

TEST_F(ChmodTree, TakesPathsOfAnyLength)
{
    std::string const deep = dir / "deep";
    makeDeepTree(deep, 50);
    changeModes(deep);
    auto const before = fs::current_path();
    fs::current_path(deep);
    while (chdir(std::string(200, 'd').c_str()) == 0)
        EXPECT_EQ(modeOf("."), dir_mode);
    EXPECT_EQ(modeOf("file"), file_mode);
    fs::current_path(before);
    removeTree(deep);
}

TEST_F(ChownTree, LeavesLinksAndOtherKindsAlone)
{
    // Only two files and two directories of the tree need a change.
    auto const run = inChild([&] {
        CallFailure const fifth("fchownat", EPERM, 5);
        changeOwner(tree);
        changeOwner(tree + "/link");
        changeOwner(tree + "/pipe");
        return 7;
    });
    EXPECT_EQ(run.status, 7);
    EXPECT_EQ(run.err, "");
}

TEST_F(LibtreeOnHost, ChownTreeChangesASingleFileWhateverTheForce)
{
    TempDir const dir;
    for (int const force_self : {0, 1}) {
        std::string const path = dir / std::to_string(force_self);
        writeFile(path, "");
        chown_tree(path.c_str(), "daemon", "daemon", force_self);
        EXPECT_EQ(infoOf(path).st_uid, getpwnam("daemon")->pw_uid);
    }
}

TEST_F(LibtreeOnHost, ChownTreeChangesFilesAndDirectoriesOnly)
{
    TempDir const dir;
    std::string const tree = dir / "tree";
    fs::create_directories(tree + "/sub");
    writeFile(tree + "/sub/file", "");
    writeFile(dir / "outside", "");
    fs::create_symlink(dir / "outside", tree + "/link");
    ASSERT_EQ(mkfifo((tree + "/pipe").c_str(), 0600), 0);

    passwd const* const daemon = getpwnam("daemon");
    chown_tree(tree.c_str(), "daemon", std::to_string(daemon->pw_gid).c_str(), 0);
    for (char const* const changed : {"/sub", "/sub/file"}) {
        EXPECT_EQ(infoOf(tree + changed).st_uid, daemon->pw_uid);
        EXPECT_EQ(infoOf(tree + changed).st_gid, daemon->pw_gid);
    }
    EXPECT_EQ(infoOf(tree).st_uid, getuid());
    EXPECT_EQ(infoOf(tree + "/link").st_uid, getuid());
    EXPECT_EQ(infoOf(tree + "/pipe").st_uid, getuid());
    EXPECT_EQ(infoOf(dir / "outside").st_uid, getuid());

    chown_tree(tree.c_str(), "daemon", "daemon", 1);
    EXPECT_EQ(infoOf(tree).st_uid, daemon->pw_uid);
    EXPECT_EQ(infoOf(tree).st_gid, daemon->pw_gid);
}

TEST_F(LibtreeOnHost, ChownTreeFollowsNoLinkSwappedInForAFile)
{
    TempDir const dir;
    writeFile(dir / "file", "");
    writeFile(dir / "outside", "");
    BeforeCall const swap("fchownat", 1, [&] {
        fs::remove(dir / "file");
        fs::create_symlink(dir / "outside", dir / "file");
    });
    chown_tree((dir / "file").c_str(), "daemon", "daemon", 1);
    EXPECT_EQ(infoOf(dir / "file").st_uid, getuid());
    EXPECT_EQ(infoOf(dir / "outside").st_uid, getuid());
}

TEST_F(LibtreeOnHost, TreeSetPermsChangesOwnersAndModes)
{
    TempDir const dir;
    std::string const tree = dir / "tree";
    fs::create_directory(tree);
    writeFile(tree + "/file", "");
    EXPECT_EQ(tree_set_perms(tree.c_str(), "daemon", "daemon", file_mode, dir_mode, 1), 0);
    passwd const* const daemon = getpwnam("daemon");
    for (std::string const& changed : {tree, tree + "/file"})
        EXPECT_EQ(infoOf(changed).st_uid, daemon->pw_uid);
    EXPECT_EQ(modeOf(tree), dir_mode);
    EXPECT_EQ(modeOf(tree + "/file"), file_mode);
}

TEST_F(ChmodTree, LeavesAFileWithAFurtherNameAlone)
{
    fs::create_hard_link(outside + "/file", tree + "/hard");
    changeModes(tree);
    changeModes(tree + "/hard");
    expectOutsideUntouched();
}

TEST_F(RmTree, TakesAPathThatEndsInASlash)
{
    removeTree(tree + "/");
    EXPECT_FALSE(fs::exists(tree));
}

TEST_F(Tree, TreeSetPermsChangesTheOwnerFirst)
{
    EXPECT_EQ(lastWords([&] {
                  CallFailure const failing("fchownat", EPERM, 4);
                  tree_set_perms(tree.c_str(), ownUser().c_str(), std::to_string(getgid()).c_str(),
                                 file_mode, dir_mode, 1);
              }),
              report("Unable to chown dir " + tree, EPERM));
    EXPECT_EQ(modeOf(tree + "/file"), 0600U);
}

TEST_F(Tree, ReportsAMissingArgumentOfChownTreeAndChmodTree)
{
    std::string const none = dir / "none";
    std::string const words = report("Unable to get entry " + none, ENOENT);
    EXPECT_EQ(lastWords([&] { changeOwner(none); }), words);
    EXPECT_EQ(lastWords([&] { changeModes(none); }), words);
}

TEST_F(RmTree, ReportsAnArgumentThatCannotBeLookedAt)
{
    std::string const below = tree + "/file/x";
    EXPECT_EQ(lastWords([&] { removeTree(below); }),
              report("Unable to get entry " + below, ENOTDIR));
}
