#include "lib/beneath/entry.h"

#include "strangers_tree.h"

#include <fcntl.h>
#include <unistd.h>

namespace fs = std::filesystem;

using Entry = StrangersTree;
using EntryEachWay = EachWay;
INSTANTIATE_EACH_WAY(EntryEachWay);

namespace {

constexpr timespec long_ago[2] = {{1000, 0}, {2000, 0}};

struct stat lookAt(int root, char const* path)
{
    struct stat info = {};
    EXPECT_EQ(look_beneath(root, path, info), 0) << path;
    return info;
}

} // namespace

TEST_P(EntryEachWay, IsLookedAtWithoutFollowing)
{
    fs::create_symlink(outside + "/file", path("sub/link"));
    EXPECT_TRUE(S_ISLNK(lookAt(root.get(), "sub/link").st_mode));
    EXPECT_EQ(lookAt(root.get(), "sub/file").st_size, 4);
    EXPECT_TRUE(S_ISDIR(lookAt(root.get(), "sub").st_mode));
}

TEST_P(EntryEachWay, IsRemovedWithoutFollowing)
{
    fs::create_symlink(outside + "/file", path("sub/link"));
    EXPECT_EQ(remove_file_beneath(root.get(), "sub/link"), 0);
    EXPECT_EQ(remove_file_beneath(root.get(), "sub/file"), 0);
    EXPECT_BARRED(remove_file_beneath(root.get(), "sub/deep"), EISDIR);
    EXPECT_BARRED(remove_directory_beneath(root.get(), "sub"), ENOTEMPTY);
    EXPECT_EQ(remove_directory_beneath(root.get(), "sub/deep"), 0);
    EXPECT_TRUE(fs::is_empty(path("sub")));
    expectOutsideUntouched();
}

TEST_P(EntryEachWay, IsNeverReachedThroughALink)
{
    fs::create_directory_symlink(outside, path("way"));
    struct stat info = {};
    char text[100];
    int const at = root.get();
    EXPECT_BARRED(look_beneath(at, "way/file", info), ELOOP);
    EXPECT_BARRED(remove_file_beneath(at, "way/file"), ELOOP);
    EXPECT_BARRED(remove_directory_beneath(at, "way/sub"), ELOOP);
    EXPECT_BARRED(rename_beneath(at, "way/file", at, "mine"), ELOOP);
    EXPECT_BARRED(rename_beneath(at, "sub/file", at, "way/file"), ELOOP);
    EXPECT_BARRED(rename_new_beneath(at, "way/file", at, "mine"), ELOOP);
    EXPECT_BARRED(rename_new_beneath(at, "sub/file", at, "way/new"), ELOOP);
    EXPECT_BARRED(set_times_beneath(at, "way/file", long_ago), ELOOP);
    EXPECT_BARRED(set_rights_beneath(at, "way/file", mode_only(0777)), ELOOP);
    EXPECT_BARRED(set_rights_beneath(at, "way", mode_only(0777)), ELOOP);
    EXPECT_BARRED(make_link_beneath(at, "way/new", "x"), ELOOP);
    EXPECT_BARRED(read_link_beneath(at, "way/link", text, sizeof text), ELOOP);
    expectOutsideUntouched();
    EXPECT_NE(modeOf(outside), 0777U);
}

TEST_P(EntryEachWay, IsNeverReachedByANameThatLeadsElsewhere)
{
    struct stat info = {};
    int const at = root.get();
    for (char const* const name :
         {"../outside/file", "", "..", "sub/..", "/etc/passwd", "sub//file"}) {
        EXPECT_BARRED(look_beneath(at, name, info), EINVAL);
        EXPECT_BARRED(remove_file_beneath(at, name), EINVAL);
        EXPECT_BARRED(rename_beneath(at, name, at, "mine"), EINVAL);
        EXPECT_BARRED(rename_new_beneath(at, "sub/file", at, name), EINVAL);
        EXPECT_BARRED(set_times_beneath(at, name, long_ago), EINVAL);
        EXPECT_BARRED(set_rights_beneath(at, name, mode_only(0777)), EINVAL);
        EXPECT_BARRED(make_link_beneath(at, name, "x"), EINVAL);
    }
    expectOutsideUntouched();
}

TEST_P(EntryEachWay, IsRenamedFromOneDirectoryToAnother)
{
    EXPECT_EQ(rename_beneath(root.get(), "sub/file", root.get(), "sub/deep/file"), 0);
    EXPECT_EQ(readFile(path("sub/deep/file")), "text");
    writeFile(path("other"), "other");
    EXPECT_EQ(rename_beneath(root.get(), "other", root.get(), "sub/deep/file"), 0);
    EXPECT_EQ(readFile(path("sub/deep/file")), "other");
}

TEST_P(EntryEachWay, IsRenamedOnlyToAFreeNameWhenAsked)
{
    fs::create_symlink("none", path("dangling"));
    int const at = root.get();
    EXPECT_EQ(rename_new_beneath(at, "sub/file", at, "sub/new"), 0);
    for (char const* const name : {"dangling", "sub", "sub/deep"})
        EXPECT_BARRED(rename_new_beneath(at, "sub/new", at, name), EEXIST);
    EXPECT_BARRED(rename_new_beneath(at, "none", at, "free"), ENOENT);
    EXPECT_EQ(readFile(path("sub/new")), "text");
}

TEST_F(Entry, IsRenamedToAFreeNameWithoutTheKernelsPromise)
{
    int const at = root.get();
    for (int const error : {EINVAL, ENOSYS}) {
        {
            CallFailure const failing("renameat2", error);
            EXPECT_BARRED(rename_new_beneath(at, "sub/file", at, "sub/deep"), EEXIST);
        }
        CallFailure const failing("renameat2", error);
        EXPECT_EQ(rename_new_beneath(at, "sub/file", at, "sub/new"), 0);
        EXPECT_EQ(rename_beneath(at, "sub/new", at, "sub/file"), 0);
    }
}

TEST_F(Entry, HasItsTimesSetWithoutFollowing)
{
    fs::create_symlink(outside + "/file", path("sub/link"));
    EXPECT_EQ(set_times_beneath(root.get(), "sub/link", long_ago), 0);
    EXPECT_EQ(set_times_beneath(root.get(), "sub/file", long_ago), 0);
    EXPECT_EQ(lookAt(root.get(), "sub/link").st_mtime, 2000);
    EXPECT_EQ(lookAt(root.get(), "sub/file").st_atime, 1000);
    struct stat info = {};
    ASSERT_EQ(stat((outside + "/file").c_str(), &info), 0);
    EXPECT_NE(info.st_mtime, 2000);
}

TEST_P(EntryEachWay, GetsItsModeAsAFileOrADirectory)
{
    mode_t const before = umask(0777);
    EXPECT_EQ(set_rights_beneath(root.get(), "sub/file", mode_only(0604)), 0);
    EXPECT_EQ(set_rights_beneath(root.get(), "sub/deep", {getuid(), getgid(), 0705}), 0);
    umask(before);
    EXPECT_EQ(modeOf(path("sub/file")), 0604U);
    EXPECT_EQ(modeOf(path("sub/deep")), 0705U);
    EXPECT_EQ(errno, 0);
}

TEST_F(Entry, GivesNoRightsToLinksFifosOrSecondNames)
{
    fs::create_symlink(outside + "/file", path("link"));
    fs::create_hard_link(outside + "/file", path("hard"));
    ASSERT_EQ(mkfifo(path("fifo").c_str(), 0600), 0);
    EXPECT_BARRED(set_rights_beneath(root.get(), "link", mode_only(0777)), ELOOP);
    EXPECT_BARRED(set_rights_beneath(root.get(), "hard", mode_only(0777)), EMLINK);
    EXPECT_BARRED(set_rights_beneath(root.get(), "fifo", mode_only(0777)), EINVAL);
    EXPECT_NE(modeOf(outside + "/file"), 0777U);
}

TEST_F(Entry, GivesRightsToWhatItHasTaken)
{
    BeforeCall const swap("chmod", 1, [&] {
        fs::rename(path("sub/file"), path("sub/old"));
        fs::create_symlink(outside + "/file", path("sub/file"));
    });
    EXPECT_EQ(set_rights_beneath(root.get(), "sub/file", mode_only(0707)), 0);
    EXPECT_EQ(modeOf(path("sub/old")), 0707U);
    EXPECT_NE(modeOf(outside + "/file"), 0707U);
}

TEST_P(EntryEachWay, MakesAndReadsALinkOfItsOwn)
{
    char target[6];
    EXPECT_EQ(make_link_beneath(root.get(), "sub/link", "/prog"), 0);
    EXPECT_BARRED(make_link_beneath(root.get(), "sub/file", "/prog"), EEXIST);
    EXPECT_EQ(read_link_beneath(root.get(), "sub/link", target, sizeof target), 0);
    EXPECT_STREQ(target, "/prog");
    EXPECT_BARRED(read_link_beneath(root.get(), "sub/link", target, 5), ENAMETOOLONG);
    EXPECT_BARRED(read_link_beneath(root.get(), "sub/file", target, sizeof target), EINVAL);
}
