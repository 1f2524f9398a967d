#include "util/tmp_file.h"

#include "support/child_run.h"
#include "support/fd_census.h"
#include "support/temp_dir.h"
#include "util/errors.h"

#include <gtest/gtest.h>

#include <csignal>
#include <filesystem>

#include <fcntl.h>
#include <sys/resource.h>
#include <unistd.h>

namespace fs = std::filesystem;

TEST(TmpFile, LiesBesideItsTargetWithSixMoreCharacters)
{
    TempDir const dir;
    std::string const target = dir / "master.cf";
    orvek::TmpFile const file(target, true);
    EXPECT_EQ(file.path().substr(0, target.size()), target);
    EXPECT_EQ(file.path().size(), target.size() + 6);
    EXPECT_EQ(fs::path(file.path()).parent_path(), dir.path());
    EXPECT_TRUE(fs::exists(file.path()));
}

TEST(TmpFile, HasTheModeThatMkstempGives)
{
    TempDir const dir;
    orvek::TmpFile const file(dir / "x", true);
    EXPECT_EQ(modeOf(file.path()), 0600U);
}

TEST(TmpFile, MakesANewNameEachTime)
{
    TempDir const dir;
    orvek::TmpFile const one(dir / "x", true);
    orvek::TmpFile const two(dir / "x", true);
    EXPECT_NE(one.path(), two.path());
}

TEST(TmpFile, TakesAwayTheFileWhileAutocleanIsSet)
{
    TempDir const dir;
    {
        orvek::TmpFile file(dir / "x", true);
        file << "half a file" << std::flush;
    }
    EXPECT_TRUE(fs::is_empty(dir.path()));
}

TEST(TmpFile, KeepsTheWholeFileOnceAutocleanIsCleared)
{
    TempDir const dir;
    std::string path;
    {
        orvek::TmpFile file(dir / "x", true);
        path = file.path();
        file << "all of it";
        file.autoclean = false;
    }
    EXPECT_EQ(readFile(path), "all of it");
    fs::rename(path, dir / "x");
    EXPECT_EQ(readFile(dir / "x"), "all of it");
}

TEST(TmpFile, BeginsWithTheAutocleanItWasGiven)
{
    TempDir const dir;
    {
        orvek::TmpFile file(dir / "x", false);
        EXPECT_FALSE(file.autoclean);
        file.autoclean = true;
    }
    EXPECT_TRUE(fs::is_empty(dir.path()));
}

TEST(TmpFile, RaisesASystemErrorAndLeavesNothingWhenMakingFails)
{
    TempDir const dir;
    auto const before = openDescriptors();
    try {
        orvek::TmpFile const file(dir / "missing/x", true);
        ADD_FAILURE() << "no exception";
    } catch (orvek::ExSystemError<ENOENT> const& e) {
        EXPECT_STREQ(e.what(), "mkstemp() failed: : No such file or directory");
    }
    EXPECT_TRUE(fs::is_empty(dir.path()));
    EXPECT_EQ(openDescriptors(), before);
}

TEST(TmpFile, ClosesItsDescriptors)
{
    TempDir const dir;
    auto const before = openDescriptors();
    {
        orvek::TmpFile const file(dir / "x", true);
        EXPECT_EQ(openDescriptors().size(), before.size() + 2); // the file and its directory
    }
    EXPECT_EQ(openDescriptors(), before);
}

TEST(TmpFile, SaysThatItsRemovalFailedAndGoesOn)
{
    TempDir const dir;
    auto const run = printedBy([&] {
        orvek::TmpFile const file(dir / "x", true);
        fs::remove(file.path());
    });
    EXPECT_EQ(run.status, 0);
    EXPECT_EQ(run.err, "TmpFile autoclean failed: No such file or directory\n");
    EXPECT_EQ(run.out, "");
}

TEST(TmpFile, NamesTheReasonWhateverHappensToStandardOutput)
{
    TempDir const dir;
    auto const run = printedBy([&] {
        dup2(open("/dev/full", O_WRONLY), STDOUT_FILENO);
        std::cout << "finds no room";
        orvek::TmpFile const file(dir / "x", true);
        fs::remove(file.path());
    });
    EXPECT_EQ(run.err, "TmpFile autoclean failed: No such file or directory\n");
}

TEST(TmpFile, FailsByTheExceptionMaskAndRemovesTheFile)
{
    TempDir const dir;
    auto const run = inChild([&] {
        signal(SIGXFSZ, SIG_IGN);
        rlimit const limit = {1, 1};
        setrlimit(RLIMIT_FSIZE, &limit);
        try {
            orvek::TmpFile file(dir / "x", true);
            file.exceptions(std::ios_base::badbit | std::ios_base::failbit);
            file << "more than one byte" << std::flush;
        } catch (std::ios_base::failure const&) {
            return 7;
        }
        return 0;
    });
    EXPECT_EQ(run.status, 7);
    EXPECT_TRUE(fs::is_empty(dir.path()));
}
