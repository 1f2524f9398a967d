#include "lib/files/copy_file.h"

#include "lib/report/product_log.h"
#include "support/call_faults.h"
#include "support/child_run.h"
#include "support/fd_census.h"
#include "support/host_test.h"
#include "support/lock_file.h"
#include "support/memory_faults.h"
#include "support/other_process.h"
#include "support/report.h"
#include "support/temp_dir.h"

#include <gtest/gtest.h>

#include <filesystem>
#include <iterator>

#include <syslog.h>
#include <unistd.h>

namespace {

class Files
{
protected:
    int filesIn(std::string const& path) const
    {
        return static_cast<int>(std::distance(std::filesystem::directory_iterator(path),
                                              std::filesystem::directory_iterator()));
    }

    TempDir dir;
    std::string const src = dir / "src";
    std::string const dst = dir / "dst";
    // More than two blocks, and not a whole number of them.
    std::string const content = std::string(4096, 'a') + std::string(4096, 'b') + "end";
};

class CopyFileOnHost : public HostTest, protected Files
{
protected:
    int copy() { return copy_file(src.c_str(), dst.c_str()); }
    std::string both() const { return src + " to " + dst; }
};

class CopyFileAtomicOnHost : public HostTest, protected Files
{
};

class CopyFileAtomic : public ::testing::Test, protected Files
{
protected:
    void copy() { copy_file_atomic(src.c_str(), dst.c_str(), getuid(), getgid(), 0440); }

    // Expects that copying ends the process with this report and leaves nothing behind.
    void expectFailure(char const* word, int error)
    {
        int const files = filesIn(dir.path());
        expectReport(word, error, "");
        EXPECT_EQ(filesIn(dir.path()), files);
    }

    void expectReport(char const* word, int error, char const* failing_call, int number = 1)
    {
        auto const run = inChild([&] {
            CallFailure const failing(failing_call, error, number);
            copy();
            return 7;
        });
        EXPECT_EQ(run.status, 1);
        EXPECT_EQ(
            run.err,
            withErrno("copy_file_atomic(" + src + " -> " + dst + "): " + word + " failed", error));
    }

    // The path of what lies beside source and target.
    std::string temporary() const
    {
        for (auto const& entry : std::filesystem::directory_iterator(dir.path()))
            if (entry.path() != src && entry.path() != dst)
                return entry.path();
        return "";
    }

    void expectFailureOf(char const* call, int number, char const* word)
    {
        writeFile(src, content);
        writeFile(dst, "old");
        expectReport(word, EIO, call, number);
        EXPECT_EQ(readFile(dst), "old");
        EXPECT_EQ(filesIn(dir.path()), 2);
    }
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

TEST_F(CopyFileOnHost, DoesNotEmptyAFileThatIsCopiedOntoItselfByAnotherSpelling)
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
        close(held->fd); // the child's own hold on the lock
        return copy() == 0;
    });
    EXPECT_FALSE(copying.hasEndedWithin(100));
    EXPECT_FALSE(std::filesystem::exists(dst));
    EXPECT_EQ(rm_lock(held), 0);
    EXPECT_TRUE(copying.hasEndedWithin(10000));
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
        LogLevel = LOG_ERR;                         // the report's own, so that it is just printed
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
    // The ones before them open lock, source and target, which exist the second time.
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

TEST_F(CopyFileOnHost, ReportsALockThatCannotBeReleasedAndDoesNotFail)
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

TEST_F(CopyFileAtomic, CopiesTheContentAndSetsTheMode)
{
    auto const before = openDescriptors();
    writeFile(src, content);
    copy();
    EXPECT_EQ(readFile(dst), content);
    EXPECT_EQ(modeOf(dst), 0440U);
    EXPECT_EQ(filesIn(dir.path()), 2);
    EXPECT_EQ(openDescriptors(), before);
}

TEST_F(CopyFileAtomic, ReplacesTheTarget)
{
    writeFile(src, "new");
    writeFile(dst, "old");
    std::filesystem::create_hard_link(dst, dir / "kept");
    copy();
    EXPECT_EQ(readFile(dst), "new");
    EXPECT_EQ(readFile(dir / "kept"), "old");
}

TEST_F(CopyFileAtomic, EndsTheProcessWithoutItsSource)
{
    expectFailure("open", ENOENT);
}

TEST_F(CopyFileAtomic, EndsTheProcessWithoutATemporaryFile)
{
    writeFile(src, content);
    auto const run = inChild([&] {
        copy_file_atomic(src.c_str(), (dir / "none/dst").c_str(), 0, 0, 0);
        return 7;
    });
    EXPECT_EQ(run.status, 1);
    EXPECT_EQ(run.err, withErrno("copy_file_atomic(" + src + " -> " + (dir / "none/dst") +
                                     "): mkstemp failed",
                                 ENOENT));
}

TEST_F(CopyFileAtomic, EndsTheProcessForASourceThatIsNoRegularFile)
{
    std::filesystem::create_directory(src);
    expectFailure("open", EISDIR);
    std::filesystem::remove(src);
    writeFile(dir / "theirs", "secret");
    std::filesystem::create_symlink(dir / "theirs", src);
    expectFailure("open", ELOOP);
    std::filesystem::remove(src);
    std::filesystem::create_hard_link(dir / "theirs", src);
    expectFailure("open", EMLINK);
    std::filesystem::remove(src);
    ASSERT_EQ(mkfifo(src.c_str(), 0600), 0);
    expectFailure("open", EINVAL);
}

TEST_F(CopyFileAtomic, EndsTheProcessWhenAStepFailsAndLeavesTheTargetAsItWas)
{
    expectFailureOf("read", 1, "read");
    expectFailureOf("write", 1, "write");
    expectFailureOf("fchownat", 1, "chown");
    expectFailureOf("fchmod", 2, "chmod"); // the first is of the file that is made
    expectFailureOf("close", 3, "flush");  // the first two are of the source's opening
}

TEST_F(CopyFileAtomic, ReplacesALinkAtTheTargetAndNotWhatItLeadsTo)
{
    writeFile(src, "new");
    writeFile(dir / "theirs", "secret");
    std::filesystem::create_symlink(dir / "theirs", dst);
    copy();
    EXPECT_EQ(readFile(dst), "new");
    EXPECT_EQ(readFile(dir / "theirs"), "secret");
}

TEST_F(CopyFileAtomic, EndsTheProcessWhenTheTargetCannotBeReplaced)
{
    writeFile(src, content);
    std::filesystem::create_directory(dst);
    expectFailure("rename", EISDIR);
}

TEST_F(CopyFileAtomic, WritesBesideTheTarget)
{
    writeFile(src, content);
    std::string name;
    BeforeCall const look("renameat", 1, [&] { name = temporary(); });
    copy();
    EXPECT_EQ(name.substr(0, dst.size() + 1), dst + ".");
    EXPECT_EQ(name.size(), dst.size() + 7);
}

TEST_F(CopyFileAtomic, NamesTheReasonWhateverBecomesOfTheTemporaryFile)
{
    writeFile(src, content);
    writeFile(dst, "old");
    auto const run = inChild([&] {
        // A directory can neither take the target's place nor be unlinked.
        BeforeCall const swap("renameat", 1, [&] {
            std::string const name = temporary();
            std::filesystem::remove(name);
            std::filesystem::create_directory(name);
        });
        copy();
        return 7;
    });
    EXPECT_EQ(run.status, 1);
    EXPECT_EQ(run.err,
              withErrno("copy_file_atomic(" + src + " -> " + dst + "): rename failed", ENOTDIR));
}

TEST_F(CopyFileAtomicOnHost, SetsTheOwnerAndThenTheMode)
{
    writeFile(src, content);
    copy_file_atomic(src.c_str(), dst.c_str(), 4711, 4712, 06755);
    struct stat info = {};
    ASSERT_EQ(stat(dst.c_str(), &info), 0);
    EXPECT_EQ(info.st_uid, 4711U);
    EXPECT_EQ(info.st_gid, 4712U);
    EXPECT_EQ(modeOf(dst), 06755U);
}
