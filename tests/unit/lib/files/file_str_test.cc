#include "lib/files/file_str.h"

#include "lib/files/op_locks.h"
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

#include <algorithm>
#include <filesystem>

#include <unistd.h>

namespace {

constexpr uid_t some_uid = 4711;
constexpr gid_t some_gid = 4712;

class FileStrOnHost : public HostTest
{
protected:
    int edit(char const* str, file_action_t cmd, file_pos_t set = FILE_END)
    {
        return file_str(path.c_str(), str, cmd, set);
    }

    void expectOwnerAndMode(uid_t uid, gid_t gid, mode_t mode)
    {
        struct stat info = {};
        ASSERT_EQ(stat(path.c_str(), &info), 0);
        EXPECT_EQ(info.st_uid, uid);
        EXPECT_EQ(info.st_gid, gid);
        EXPECT_EQ(info.st_mode & 07777U, mode);
    }

    TempDir dir;
    std::string const path = dir / "file";
};

std::string numbered(char name, int number)
{
    return std::string(1, name) + std::to_string(number);
}

} // namespace

TEST_F(FileStrOnHost, WrapsOneStringIntoAnArray)
{
    EXPECT_EQ(edit("a", FILE_ADD), 0);
    EXPECT_EQ(edit("b", FILE_ADD), 0);
    EXPECT_EQ(edit("a", FILE_REMOVE), 0);
    EXPECT_EQ(readFile(path), "b\n");
}

TEST_F(FileStrOnHost, WorksWithEachStringOfAnArray)
{
    char const* const strs[] = {"a", "b", "c", nullptr};
    EXPECT_EQ(file_strings(path.c_str(), strs, FILE_ADD, FILE_END), 0);
    EXPECT_EQ(readFile(path), "a\nb\nc\n");
    EXPECT_EQ(file_strings(path.c_str(), strs + 1, FILE_REMOVE, FILE_END), 0);
    EXPECT_EQ(readFile(path), "a\n");
}

TEST_F(FileStrOnHost, LeavesTheDefaultModeToAFileThatItCreates)
{
    mode_t const mask = umask(022);
    EXPECT_EQ(edit("a", FILE_ADD), 0);
    umask(mask);
    expectOwnerAndMode(getuid(), getgid(), 0644);
}

TEST_F(FileStrOnHost, KeepsErrnoOverAFileThatMayBeMissing)
{
    errno = 0;
    EXPECT_EQ(edit("a", FILE_ADD), 0);
    EXPECT_EQ(errno, 0);
}

TEST_F(FileStrOnHost, RestoresOwnerAndModeOfAFileThatItRewrites)
{
    writeFile(path, "a\nb\n");
    ASSERT_EQ(chown(path.c_str(), some_uid, some_gid), 0);
    ASSERT_EQ(chmod(path.c_str(), 02751), 0);
    EXPECT_EQ(edit("a", FILE_REMOVE), 0);
    expectOwnerAndMode(some_uid, some_gid, 02751);
    EXPECT_EQ(edit("a", FILE_ADD, FILE_BEGIN), 0);
    expectOwnerAndMode(some_uid, some_gid, 02751);
    EXPECT_EQ(readFile(path), "a\nb\n");
}

TEST_F(FileStrOnHost, SetsOwnerAndModeWhenItOnlyAddsLines)
{
    writeFile(path, "a\n");
    ASSERT_EQ(chown(path.c_str(), some_uid, some_gid), 0);
    ASSERT_EQ(chmod(path.c_str(), 0640), 0);
    // Somebody takes over the file while it is being written.
    bool taken = false;
    BeforeCall const taking("fclose", 1, [&] {
        taken = chown(path.c_str(), 0, 0) == 0 && chmod(path.c_str(), 0666) == 0;
    });
    EXPECT_EQ(edit("b", FILE_ADD), 0);
    EXPECT_TRUE(taken);
    expectOwnerAndMode(some_uid, some_gid, 0640);
    EXPECT_EQ(readFile(path), "a\nb\n");
}

TEST_F(FileStrOnHost, ReportsAnOwnerThatCannotBeRestored)
{
    writeFile(path, "a\n");
    auto const run = inChild([&] {
        CallFailure const failing("chown", EPERM);
        return edit("a", FILE_REMOVE);
    });
    EXPECT_EQ(run.status, 1);
    EXPECT_EQ(run.err, withErrno("file_str: ERROR: Unable to chown file " + path +
                                     ": Operation not permitted",
                                 EPERM));
    EXPECT_EQ(readFile(path), "");
}

TEST_F(FileStrOnHost, ReportsAModeThatCannotBeRestored)
{
    writeFile(path, "a\n");
    auto const run = inChild([&] {
        CallFailure const failing("chmod", EPERM);
        return edit("a", FILE_REMOVE);
    });
    EXPECT_EQ(run.status, 1);
    EXPECT_EQ(run.err, withErrno("file_str: ERROR: Unable to chmod file " + path +
                                     ": Operation not permitted",
                                 EPERM));
}

TEST_F(FileStrOnHost, ReportsAFileThatTellsNothing)
{
    writeFile(path, "");
    std::string const below = path + "/x";
    auto const run = inChild([&] { return file_str(below.c_str(), "a", FILE_ADD, FILE_END); });
    EXPECT_EQ(run.status, 1);
    EXPECT_EQ(run.err,
              withErrno("file_str: Unable to stat file " + below + ": Not a directory\n", ENOTDIR));
}

TEST_F(FileStrOnHost, FailsInSilenceToRemoveFromAMissingFile)
{
    auto const run = inChild([&] { return edit("a", FILE_REMOVE); });
    EXPECT_EQ(run.status, 1);
    EXPECT_EQ(run.err, "");
}

TEST_F(FileStrOnHost, ReportsALockThatCannotBeTaken)
{
    auto const run = inChild([&] {
        CallFailure const failing("flock", ENOLCK);
        return edit("a", FILE_ADD);
    });
    EXPECT_EQ(run.status, 1);
    EXPECT_EQ(run.err, withErrno("Error occurred while locking the file " + path + ": " +
                                     strerror(ENOLCK) + "\n",
                                 ENOLCK));
    EXPECT_FALSE(std::filesystem::exists(path));
}

TEST_F(FileStrOnHost, DoesNothingWithoutItsLockFile)
{
    auto const run = inChild([&] {
        CallFailure const failing("open", EACCES);
        return edit("a", FILE_ADD);
    });
    EXPECT_EQ(run.status, 1);
    EXPECT_EQ(
        run.err,
        withErrno("Unable to open file \"" + lockFileOf(path) + "\": Permission denied.", EACCES) +
            withErrno("Error occurred while locking the file " + path + ": Permission denied\n",
                      EACCES));
    EXPECT_EQ(run.out, run.err);
    EXPECT_FALSE(std::filesystem::exists(path));
}

TEST_F(FileStrOnHost, ReportsThatThereIsNoMemoryForALock)
{
    auto const run = inChild([&] {
        AllocationFailure const failing(1);
        return edit("a", FILE_ADD);
    });
    EXPECT_EQ(run.status, 1);
    EXPECT_EQ(run.err, withErrno("Error occurred while locking the file " + path + ": " +
                                     strerror(ENOMEM) + "\n",
                                 ENOMEM));
    EXPECT_FALSE(std::filesystem::exists(path));
}

TEST_F(FileStrOnHost, ReportsALockThatCannotBeReleased)
{
    auto const run = inChild([&] {
        CallFailure const failing("close", EIO, 4); // three before it take the lock
        return edit("a", FILE_ADD);
    });
    EXPECT_EQ(run.status, 1);
    EXPECT_EQ(run.err, withErrno("An error occured during closing '" + lockFileOf(path) +
                                     "' file: Input/output error\n",
                                 EIO) +
                           withErrno("Error occurred while unlocking the file " + path +
                                         ": Input/output error\n",
                                     EIO));
    EXPECT_EQ(readFile(path), "a\n");
}

TEST_F(FileStrOnHost, ReleasesTheLockOnEveryWay)
{
    auto const before = openDescriptors();
    EXPECT_EQ(edit("a", FILE_REMOVE), 1);
    EXPECT_EQ(edit("a", FILE_ADD), 0);
    EXPECT_EQ(edit("a", FILE_REMOVE), 0);
    EXPECT_EQ(openDescriptors(), before);
    lock_struct_t* const lock = mk_nonblock_lock(path.c_str(), 1);
    EXPECT_TRUE(is_locked(lock));
    EXPECT_EQ(rm_lock(lock), 0);
}

TEST_F(FileStrOnHost, WaitsForAnotherProcessThatEditsTheFile)
{
    lock_struct_t* const held = mk_lock(path.c_str(), 1);
    OtherProcess editing([&] {
        close(held->fd); // the child's copy of the lock's descriptor
        return edit("a", FILE_ADD) == 0;
    });
    EXPECT_FALSE(editing.hasEndedWithin(100));
    EXPECT_FALSE(std::filesystem::exists(path));
    EXPECT_EQ(rm_lock(held), 0);
    EXPECT_TRUE(editing.hasEndedWithin(300000));
    EXPECT_EQ(editing.status(), 0);
    EXPECT_EQ(readFile(path), "a\n");
}

TEST_F(FileStrOnHost, LosesNoLineOfProcessesThatEditOneFile)
{
    constexpr int rounds = 200;
    writeFile(path, "");
    // Rewrites: a writer without the lock would undo the other's work.
    auto const addLines = [&](char name) {
        int failed = 0;
        for (int number = 0; number < rounds; ++number)
            failed += edit(numbered(name, number).c_str(), FILE_ADD, FILE_BEGIN);
        return failed == 0;
    };
    OtherProcess first([&] { return addLines('a'); });
    OtherProcess second([&] { return addLines('b'); });
    EXPECT_EQ(first.status(), 0);
    EXPECT_EQ(second.status(), 0);
    std::string const text = "\n" + readFile(path);
    EXPECT_EQ(std::count(text.begin(), text.end(), '\n'), 2 * rounds + 1);
    for (int number = 0; number < rounds; ++number)
        for (char const name : {'a', 'b'})
            EXPECT_NE(text.find("\n" + numbered(name, number) + "\n"), std::string::npos);
}
