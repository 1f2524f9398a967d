#include "lib/files/copy_file.h"

#include "copy_file_fixture.h"

#include "lib/report/product_log.h"
#include "support/call_faults.h"
#include "support/child_run.h"
#include "support/fd_census.h"
#include "support/host_test.h"
#include "support/lock_file.h"
#include "support/other_process.h"
#include "support/report.h"

#include <gtest/gtest.h>

#include <filesystem>

#include <syslog.h>
#include <unistd.h>

namespace {

class CopyFileOnHost : public HostTest, protected Files
{
protected:
    int copy() { return copy_file(src.c_str(), dst.c_str()); }
    std::string both() const { return src + " to " + dst; }
};

} // namespace

TEST_F(CopyFileOnHost, CopiesTheContentAndTheMode)
{
    mode_t const mask = umask(0);
    writeFile(src, content);
    ASSERT_EQ(chmod(src.c_str(), 06750), 0);
    EXPECT_EQ(copy(), 0);
    umask(mask);
    EXPECT_EQ(readFile(dst), content);
    EXPECT_EQ(modeOf(dst), 0750U);
}

TEST_F(CopyFileOnHost, DoesNotEmptyAFileCopiedOntoItself)
{
    writeFile(src, content);
    EXPECT_EQ(copy_file(src.c_str(), (dir / "./src").c_str()), 0);
    EXPECT_EQ(readFile(src), content);
}

TEST_F(CopyFileOnHost, FollowsNoLinkAndReadsNoFifo)
{
    writeFile(dir / "theirs", "secret");
    std::filesystem::create_symlink(dir / "theirs", dir / "link");
    std::filesystem::create_symlink(dir / "new", dir / "dangling");
    ASSERT_EQ(mkfifo((dir / "fifo").c_str(), 0600), 0);
    writeFile(src, content);
    std::string const dangling = dir / "dangling";
    std::string const link = dir / "link";
    std::string const fifo = dir / "fifo";
    auto const run = inChild([&] {
        return copy_file(link.c_str(), dst.c_str()) + copy_file(fifo.c_str(), dst.c_str()) +
               copy_file(src.c_str(), link.c_str()) + copy_file(src.c_str(), fifo.c_str()) +
               copy_file(src.c_str(), dangling.c_str());
    });
    EXPECT_EQ(run.status, 5);
    EXPECT_EQ(readFile(dir / "theirs"), "secret");
    EXPECT_FALSE(std::filesystem::exists(dir / "new"));
}

TEST_F(CopyFileOnHost, OverwritesALongerTarget)
{
    writeFile(src, "new");
    writeFile(dst, "older");
    EXPECT_EQ(copy(), 0);
    EXPECT_EQ(readFile(dst), "new");
}

TEST_F(CopyFileOnHost, CopiesAnEmptyFile)
{
    writeFile(src, "");
    EXPECT_EQ(copy(), 0);
    EXPECT_TRUE(std::filesystem::exists(dst));
}

TEST_F(CopyFileOnHost, CopiesToStandardOutputAndLeavesItOpen)
{
    writeFile(src, content);
    auto const run = printedBy([&] {
        if (copy_file(src.c_str(), "-") == 0)
            fputs("after", stdout);
    });
    EXPECT_EQ(run.out, content + "after");
    EXPECT_EQ(run.err, "");
}

TEST_F(CopyFileOnHost, ReleasesTheLockAndClosesItsFiles)
{
    auto const before = openDescriptors();
    writeFile(src, content);
    EXPECT_EQ(copy(), 0);
    EXPECT_EQ(openDescriptors(), before);
}

TEST_F(CopyFileOnHost, FailsWhenTheTargetCannotBeLocked)
{
    writeFile(src, content);
    auto const run = inChild([&] {
        CallFailure const failing("flock", ENOLCK);
        return copy();
    });
    EXPECT_EQ(run.status, 1);
    EXPECT_EQ(run.err, withErrno("Error occurred while locking the file " + dst + "\n", ENOLCK));
    EXPECT_FALSE(std::filesystem::exists(dst));
}

TEST_F(CopyFileOnHost, WaitsForTheLockOfTheTarget)
{
    writeFile(src, content);
    lock_struct_t* const held = mk_lock(dst.c_str(), 1);
    OtherProcess copying([&] {
        close(held->fd); // the child's copy of the lock's descriptor
        return copy() == 0;
    });
    EXPECT_FALSE(copying.hasEndedWithin(100));
    EXPECT_FALSE(std::filesystem::exists(dst));
    EXPECT_EQ(rm_lock(held), 0);
    EXPECT_TRUE(copying.hasEndedWithin(300000));
    EXPECT_EQ(copying.status(), 0);
    EXPECT_EQ(readFile(dst), content);
}

TEST_F(CopyFileOnHost, ReportsASourceThatCannotBeOpened)
{
    auto const run = inChild([&] { return copy(); });
    EXPECT_EQ(run.status, 1);
    EXPECT_EQ(run.err,
              withErrno("Unable to open file " + src + ": No such file or directory", ENOENT));
    EXPECT_FALSE(std::filesystem::exists(dst));
}

TEST_F(CopyFileOnHost, ReportsASourceThatTellsNothing)
{
    writeFile(src, content);
    auto const run = inChild([&] {
        CallFailure const failing("fstat", EIO, 4); // after three that open lock and source
        LogLevel = LOG_ERR;                         // the report's level, so it is just printed
        return copy();
    });
    EXPECT_EQ(run.status, 1);
    EXPECT_EQ(run.err, "Unable to get info for file '" + src + "': Input/output error\n");
    EXPECT_EQ(run.out, run.err);
    EXPECT_FALSE(std::filesystem::exists(dst));
}

TEST_F(CopyFileOnHost, ReportsATargetThatCannotBeOpened)
{
    writeFile(src, content);
    std::filesystem::create_directory(dst);
    auto const run = inChild([&] { return copy(); });
    EXPECT_EQ(run.status, 1);
    EXPECT_EQ(run.err, withErrno("Unable to open file " + dst + ": Is a directory", EISDIR));
}

TEST_F(CopyFileOnHost, ReportsASourceThatCannotBeRead)
{
    std::filesystem::create_directory(src);
    auto const run = inChild([&] { return copy(); });
    EXPECT_EQ(run.status, 1);
    EXPECT_EQ(run.err, withErrno("Unable to open file " + src + ": Is a directory", EISDIR));
}

TEST_F(CopyFileOnHost, ReportsATargetThatCannotBeWritten)
{
    writeFile(src, content);
    auto const run = inChild([&] {
        CallFailure const failing("write", ENOSPC);
        return copy();
    });
    EXPECT_EQ(run.status, 1);
    EXPECT_EQ(run.err, withErrno("Error while copying file " + both() + ": No space left on device",
                                 ENOSPC));
}

TEST_F(CopyFileOnHost, FailsForAShortWrite)
{
    writeFile(src, content);
    auto const run = inChild([&] {
        CallFailure const failing("write", 0, 2, 5);
        return copy();
    });
    EXPECT_EQ(run.status, 1);
    EXPECT_EQ(run.err,
              withErrno("Error while copying file " + both() + ": Input/output error", EIO));
    EXPECT_EQ(readFile(dst), content.substr(0, 4096));
}

TEST_F(CopyFileOnHost, RepeatsAWriteOfZero)
{
    writeFile(src, content);
    CallFailure const failing("write", 0, 2, 0);
    EXPECT_EQ(copy(), 0);
    EXPECT_EQ(readFile(dst), content);
}

TEST_F(CopyFileOnHost, ReportsATargetAndASourceThatCannotBeClosed)
{
    writeFile(src, content);
    // The calls before them open lock, source and target. The second time these exist.
    for (auto const& [number, name] : {std::pair{7, dst}, {10, src}}) {
        auto const run = inChild([&, number = number] {
            CallFailure const failing("close", EIO, number);
            return copy();
        });
        EXPECT_EQ(run.status, 1);
        EXPECT_EQ(run.err,
                  withErrno("Unable to close file " + name + ": Input/output error\n", EIO));
    }
}

TEST_F(CopyFileOnHost, SucceedsButReportsALockThatStays)
{
    writeFile(src, content);
    auto const run = inChild([&] {
        CallFailure const failing("close", EIO, 9);
        return copy();
    });
    EXPECT_EQ(run.status, 0);
    EXPECT_EQ(run.err, withErrno("An error occured during closing '" + lockFileOf(dst) +
                                     "' file: Input/output error\n",
                                 EIO) +
                           withErrno("Error occurred while unlocking the file " + dst + "\n", EIO));
    EXPECT_EQ(readFile(dst), content);
}

TEST(CopyFile, IsDoneAtOnceWithEqualNames)
{
    TempDir const dir;
    std::string const path = dir / "file";
    auto const run = inChild([&] { return copy_file(path.c_str(), path.c_str()); });
    EXPECT_EQ(run.status, 0);
    EXPECT_EQ(run.err, "");
    EXPECT_FALSE(std::filesystem::exists(path));
}
