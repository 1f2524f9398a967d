#include "lib/files/libdir.h"

#include "lib/report/owned.h"
#include "support/call_faults.h"
#include "support/child_run.h"
#include "support/host_test.h"
#include "support/memory_faults.h"
#include "support/report.h"
#include "support/temp_dir.h"

#include <gtest/gtest.h>

#include <filesystem>

#include <unistd.h>

namespace fs = std::filesystem;

namespace {

class Libdir : public ::testing::Test
{
protected:
    Libdir() : mask(umask(022)) {}
    ~Libdir() override { umask(mask); }

    int makeParents(std::string const& path, mode_t mode = 0755)
    {
        return make_dir_p(path.c_str(), getuid(), getgid(), mode);
    }
    int makeOne(std::string const& path, mode_t mode = 0755)
    {
        return make_dir(path.c_str(), getuid(), getgid(), mode);
    }

    TempDir dir;
    std::string const nested = dir / "a/b/c";
    mode_t const mask;
};

class LibdirOnHost : public HostTest
{
};

void expectOwner(std::string const& path, uid_t uid, gid_t gid)
{
    struct stat info = {};
    ASSERT_EQ(stat(path.c_str(), &info), 0);
    EXPECT_EQ(info.st_uid, uid);
    EXPECT_EQ(info.st_gid, gid);
}

} // namespace

TEST_F(Libdir, MakesADirectoryAndThoseAboveIt)
{
    errno = 0;
    EXPECT_EQ(makeParents(nested, 0750), 0);
    EXPECT_EQ(errno, 0);
    for (char const* const made : {"a", "a/b", "a/b/c"})
        EXPECT_EQ(modeOf(dir / made), 0750U);
}

TEST_F(Libdir, RestoresThePathThatItCutsOnItsWay)
{
    std::string path = nested;
    EXPECT_EQ(make_dir_rec(path.data(), getuid(), getgid(), 0755), 0);
    EXPECT_EQ(path, nested);
    EXPECT_TRUE(fs::is_directory(nested));
}

TEST_F(Libdir, MakesDirectoriesForPathsWithMoreSlashesThanNeeded)
{
    EXPECT_EQ(makeParents(dir / "a//b/"), 0);
    EXPECT_TRUE(fs::is_directory(dir / "a/b"));
    EXPECT_EQ(createNestedDirectory((dir / "c//d/").c_str()), 1);
    EXPECT_TRUE(fs::is_directory(dir / "c/d"));
}

TEST_F(Libdir, DoesNotTouchADirectoryThatExists)
{
    fs::create_directory(dir / "a");
    ASSERT_EQ(chmod((dir / "a").c_str(), 0700), 0);
    auto const run = inChild([&] {
        CallFailure const failing("chown", EPERM);
        return makeParents(dir / "a");
    });
    EXPECT_EQ(run.status, 0);
    EXPECT_EQ(run.err, "");
    EXPECT_EQ(makeParents(nested), 0);
    EXPECT_EQ(modeOf(dir / "a"), 0700U);
}

TEST_F(Libdir, TakesALinkToADirectoryForOne)
{
    fs::create_directory(dir / "true");
    fs::create_directory_symlink(dir / "true", dir / "a");
    EXPECT_EQ(makeParents(nested), 0);
    EXPECT_TRUE(fs::is_directory(dir / "true/b/c"));
}

TEST_F(Libdir, EndsTheProcessWhenADirectoryCannotBeMade)
{
    writeFile(dir / "a", "");
    auto const run = inChild([&] {
        makeParents(nested);
        return 7;
    });
    EXPECT_EQ(run.status, 1);
    EXPECT_EQ(run.err,
              withErrno("Cannot create directory " + (dir / "a") + ": File exists", EEXIST));
}

TEST_F(Libdir, EndsTheProcessWithoutMemoryForACopy)
{
    auto const run = inChild([&] {
        AllocationFailure const failing(1);
        makeParents(nested);
        return 7;
    });
    EXPECT_EQ(run.status, 1);
    EXPECT_EQ(run.err,
              withErrno("Cannot create directory " + nested + ": " + strerror(ENOMEM), ENOMEM));
}

TEST_F(Libdir, OnlyReportsADirectoryThatCannotBeGivenAway)
{
    auto const run = inChild([&] {
        CallFailure const failing("fchownat", EPERM);
        return makeParents(nested);
    });
    EXPECT_EQ(run.status, 0);
    EXPECT_EQ(run.err,
              withErrno("Cannot chown " + (dir / "a") + ": Operation not permitted", EPERM));
    EXPECT_TRUE(fs::is_directory(nested));
}

TEST_F(Libdir, MakesOneDirectoryWithExactlyTheMode)
{
    EXPECT_EQ(makeOne(dir / "a", 02777), 0);
    EXPECT_EQ(modeOf(dir / "a"), 02777U);
}

TEST_F(Libdir, SetsTheModeOfADirectoryThatExists)
{
    fs::create_directory(dir / "a");
    errno = 0;
    EXPECT_EQ(makeOne(dir / "a", 0700), 0);
    EXPECT_EQ(errno, 0);
    EXPECT_EQ(modeOf(dir / "a"), 0700U);
}

TEST_F(Libdir, ReportsOneDirectoryThatCannotBeMade)
{
    auto const run = inChild([&] { return makeOne(nested) == -1 ? 0 : 1; });
    EXPECT_EQ(run.status, 0);
    EXPECT_EQ(
        run.err,
        withErrno("ERROR: Unable to mkdir " + nested + ": No such file or directory\n", ENOENT));
}

TEST_F(Libdir, DoesNotTakeAFileForADirectoryThatExists)
{
    writeFile(dir / "a", "");
    auto const run = inChild([&] { return makeOne(dir / "a") == -1 ? 0 : 1; });
    EXPECT_EQ(run.status, 0);
    EXPECT_EQ(run.err,
              withErrno("ERROR: Unable to mkdir " + (dir / "a") + ": File exists\n", EEXIST));
}

TEST_F(Libdir, ReportsOneDirectoryWhoseOwnerOrModeCannotBeSet)
{
    struct
    {
        char const* call;
        int number;
        char const* word;
    } const failures[] = {{"fchownat", 1, "chown"}, {"fchmod", 2, "chmod"}};
    for (auto const& failure : failures) {
        fs::remove(dir / "a");
        auto const run = inChild([&] {
            CallFailure const failing(failure.call, EPERM, failure.number);
            return makeOne(dir / "a") == -1 ? 0 : 1;
        });
        EXPECT_EQ(run.status, 0);
        EXPECT_EQ(run.err, withErrno("ERROR: Unable to " + std::string(failure.word) + " " +
                                         (dir / "a") + ": Operation not permitted\n",
                                     EPERM));
    }
}

TEST_F(Libdir, AcceptsThatOneDirectoryVanishes)
{
    fs::create_directory(dir / "a");
    auto const run = inChild([&] {
        CallFailure const failing("syscall", ENOENT);
        return makeOne(dir / "a") == 0 && errno == 0 ? 0 : 1;
    });
    EXPECT_EQ(run.status, 0);
    EXPECT_EQ(run.err, "");
}

TEST_F(Libdir, GivesNothingToALinkInTheDirectorysPlace)
{
    fs::create_directory(dir / "true");
    fs::create_directory_symlink(dir / "true", dir / "a");
    ASSERT_EQ(chmod((dir / "true").c_str(), 0700), 0);
    auto const run = inChild([&] { return makeOne(dir / "a", 0777) == -1 ? 0 : 1; });
    EXPECT_EQ(run.status, 0);
    EXPECT_EQ(
        run.err,
        withErrno("ERROR: Unable to mkdir " + (dir / "a") + ": " + strerror(ELOOP) + "\n", ELOOP));
    EXPECT_EQ(modeOf(dir / "true"), 0700U);
}

TEST_F(Libdir, GivesNothingToALinkForANewDirectory)
{
    fs::create_directory(dir / "true");
    ASSERT_EQ(chmod((dir / "true").c_str(), 0700), 0);
    auto const run = inChild([&] {
        BeforeCall const swap("syscall", 1, [&] {
            fs::remove(dir / "a");
            fs::create_directory_symlink(dir / "true", dir / "a");
        });
        makeParents(dir / "a", 0777);
        return 7;
    });
    EXPECT_EQ(run.status, 1);
    EXPECT_EQ(modeOf(dir / "true"), 0700U);
}

TEST_F(Libdir, MakesModesThatIgnoreTheUmask)
{
    for (mode_t const mask_now : {0U, 0777U}) {
        umask(mask_now);
        std::string const top = std::to_string(mask_now);
        EXPECT_EQ(makeParents(dir / (top + "/b"), 0750), 0);
        EXPECT_EQ(createNestedDirectory((dir / (top + "/c")).c_str()), 1);
        EXPECT_EQ(modeOf(dir / top), 0750U);
        EXPECT_EQ(modeOf(dir / (top + "/b")), 0750U);
        EXPECT_EQ(modeOf(dir / (top + "/c")), 0755U);
    }
}

TEST_F(LibdirOnHost, GivesEachNewDirectoryToItsOwner)
{
    TempDir const dir;
    EXPECT_EQ(make_dir_p((dir / "a/b").c_str(), 4711, 4712, 0755), 0);
    expectOwner(dir.path(), getuid(), getgid());
    expectOwner(dir / "a", 4711, 4712);
    expectOwner(dir / "a/b", 4711, 4712);
    EXPECT_EQ(make_dir((dir / "a").c_str(), 4713, 4714, 0755), 0);
    expectOwner(dir / "a", 4713, 4714);
}

TEST_F(LibdirOnHost, MakesADirectoryInTheRootDirectory)
{
    std::string const path = "/mailvek-test-of-libdir";
    EXPECT_EQ(make_dir_p(path.c_str(), getuid(), getgid(), 0755), 0);
    EXPECT_TRUE(fs::remove(path));
}

TEST_F(Libdir, MakesEachMissingComponentWithMode0755)
{
    fs::create_directory(dir / "a");
    ASSERT_EQ(chmod((dir / "a").c_str(), 0700), 0);
    umask(0);
    errno = 0;
    EXPECT_EQ(createNestedDirectory(nested.c_str()), 1);
    EXPECT_EQ(errno, 0);
    EXPECT_EQ(modeOf(dir / "a"), 0700U);
    EXPECT_EQ(modeOf(dir / "a/b"), 0755U);
    EXPECT_EQ(modeOf(nested), 0755U);
}

TEST_F(Libdir, DoesNothingForRootAndTheEmptyPath)
{
    EXPECT_EQ(createNestedDirectory("/"), 1);
    EXPECT_EQ(createNestedDirectory(""), 1);
}

TEST_F(Libdir, FailsInSilenceForAComponentThatIsNoDirectory)
{
    writeFile(dir / "a", "");
    for (std::string const& path : {nested, dir / "a"}) {
        auto const run = inChild(
            [&] { return createNestedDirectory(path.c_str()) == 0 && errno == ENOTDIR ? 0 : 1; });
        EXPECT_EQ(run.status, 0);
        EXPECT_EQ(run.err, "");
    }
}

TEST_F(Libdir, FailsWithTheErrorOfTheFailedComponent)
{
    std::string const path = dir / std::string(300, 'a');
    EXPECT_EQ(createNestedDirectory(path.c_str()), 0);
    EXPECT_EQ(errno, ENAMETOOLONG);
}

TEST_F(Libdir, CutsAPathAtItsLastSlash)
{
    EXPECT_STREQ(CString(getBaseDir("/a/b/c")).get(), "/a/b");
    EXPECT_STREQ(CString(getBaseDir("/a/b/")).get(), "/a/b");
    EXPECT_STREQ(CString(getBaseDir("/a")).get(), "");
    EXPECT_STREQ(CString(getBaseDir("a")).get(), "a");
}
