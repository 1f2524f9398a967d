#include "lib/files/op_locks.h"

#include "lib/report/owned.h"
#include "support/call_faults.h"
#include "support/child_run.h"
#include "support/fd_census.h"
#include "support/host_test.h"
#include "support/memory_faults.h"
#include "support/other_process.h"
#include "support/report.h"
#include "support/rights.h"
#include "support/set_aside.h"
#include "support/temp_dir.h"

#include <gtest/gtest.h>

#include <filesystem>
#include <utility>

#include <fcntl.h>
#include <sys/file.h>
#include <unistd.h>

namespace {

constexpr int plain = 0;
constexpr int hashed = 1;
constexpr char const* lock_directory = "/var/lock/files";

class OpLocks : public ::testing::Test
{
protected:
    TempDir dir;
    std::string const path = dir / "lock";
};

class OpLocksOnHost : public HostTest
{
};

} // namespace

TEST_F(OpLocks, HoldTheLockWithADescriptorAboveZero)
{
    for (auto* const make : {mk_lock, mk_nonblock_lock}) {
        lock_struct_t* const lock = make(path.c_str(), plain);
        ASSERT_NE(lock, nullptr);
        EXPECT_GT(lock->fd, 0);
        EXPECT_EQ(lock->path, path);
        EXPECT_TRUE(is_locked(lock));
        EXPECT_FALSE(is_already_locked(lock));
        EXPECT_EQ(rm_lock(lock), 0);
    }
}

TEST_F(OpLocks, CreateTheLockFileAndLeaveItOnTheDisk)
{
    mode_t const mask = umask(0);
    EXPECT_EQ(rm_lock(mk_lock(path.c_str(), plain)), 0);
    umask(mask);
    EXPECT_EQ(modeOf(path), 0644U);
}

TEST_F(OpLocks, OpenTheLockFileReadWriteAndEmptyIt)
{
    writeFile(path, "text");
    lock_struct_t* const lock = mk_lock(path.c_str(), plain);
    EXPECT_EQ(readFile(path), "");
    EXPECT_EQ(fcntl(lock->fd, F_GETFL) & O_ACCMODE, O_RDWR);
    EXPECT_EQ(rm_lock(lock), 0);
}

TEST_F(OpLocks, OpenNoLinkNoFifoAndNoDoublyNamedFile)
{
    std::string const outside = dir / "outside";
    writeFile(outside, "theirs");
    std::filesystem::create_symlink(outside, dir / "link");
    std::filesystem::create_symlink(dir / "new", dir / "dangling");
    std::filesystem::create_hard_link(outside, dir / "hard");
    ASSERT_EQ(mkfifo((dir / "fifo").c_str(), 0600), 0);
    std::pair<char const*, int> const bad[] = {
        {"link", ELOOP}, {"dangling", ELOOP}, {"hard", EMLINK}, {"fifo", EINVAL}};
    for (auto const& [name, error] : bad) {
        auto const run = inChild([&, name = name, error = error] {
            lock_struct_t* const lock = mk_lock((dir / name).c_str(), plain);
            return lock && lock->fd < 0 && errno == error && free_lock(lock) == 0 ? 0 : 1;
        });
        EXPECT_EQ(run.status, 0) << name;
        EXPECT_EQ(run.err, withErrno("Unable to open file \"" + (dir / name) +
                                         "\": " + strerror(error) + ".",
                                     error));
    }
    EXPECT_EQ(readFile(outside), "theirs");
    EXPECT_FALSE(std::filesystem::exists(dir / "new"));
}

TEST_F(OpLocksOnHost, EmptyNoFileOfSomebodyElse)
{
    TempDir const dir;
    std::string const path = dir / "theirs";
    writeFile(path, "text");
    ASSERT_EQ(chown(path.c_str(), 65534, 65534), 0);
    EXPECT_EQ(rm_lock(mk_lock(path.c_str(), plain)), 0);
    EXPECT_EQ(readFile(path), "text");
}

TEST_F(OpLocksOnHost, MakeTheirDirectoryWhereItIsMissing)
{
    for (mode_t const mask_now : {0U, 0777U}) {
        std::filesystem::remove_all(lock_directory);
        mode_t const before = umask(mask_now);
        lock_struct_t* const lock = mk_lock("/any", hashed);
        umask(before);
        EXPECT_TRUE(is_locked(lock));
        EXPECT_EQ(rm_lock(lock), 0);
        EXPECT_EQ(rightsOf(lock_directory), "drwx------ root:root");
    }
}

TEST_F(OpLocksOnHost, CloseTheirDirectoryToOthers)
{
    ASSERT_EQ(chmod(lock_directory, 0777), 0);
    EXPECT_EQ(rm_lock(mk_lock("/any", hashed)), 0);
    EXPECT_EQ(rightsOf(lock_directory), "drwx------ root:root");
}

TEST_F(OpLocksOnHost, RefuseADirectoryOfSomebodyElseAndALink)
{
    SetAside const aside(lock_directory);
    TempDir const dir;
    auto const refused = [](int error) {
        return inChild([=] {
                   lock_struct_t* const lock = mk_lock("/any", hashed);
                   return lock && lock->fd < 0 && errno == error && free_lock(lock) == 0 ? 0 : 1;
               })
            .status;
    };
    std::filesystem::create_directory_symlink(dir.path(), lock_directory);
    EXPECT_EQ(refused(ELOOP), 0);
    std::filesystem::remove(lock_directory);
    std::filesystem::create_directory(lock_directory);
    ASSERT_EQ(chown(lock_directory, 65534, 65534), 0);
    EXPECT_EQ(refused(EPERM), 0);
    EXPECT_TRUE(std::filesystem::is_empty(dir.path()));
    EXPECT_TRUE(std::filesystem::is_empty(lock_directory));
}

TEST_F(OpLocks, AreInheritedByChildren)
{
    lock_struct_t* const lock = mk_lock(path.c_str(), plain);
    EXPECT_EQ(fcntl(lock->fd, F_GETFD), 0);
    EXPECT_EQ(rm_lock(lock), 0);
}

TEST_F(OpLocks, TakeTheFlagsOfTheirCaller)
{
    writeFile(path, "text");
    lock_struct_t* const first = mk_lock_(path.c_str(), O_RDONLY, LOCK_SH, plain);
    lock_struct_t* const second = mk_lock_(path.c_str(), O_RDONLY, LOCK_SH | LOCK_NB, plain);
    EXPECT_TRUE(is_locked(first));
    EXPECT_TRUE(is_locked(second));
    EXPECT_EQ(readFile(path), "text");
    EXPECT_EQ(rm_lock(first), 0);
    EXPECT_EQ(rm_lock(second), 0);
}

TEST_F(OpLocks, GiveZeroAtOnceWhenAnotherProcessHoldsTheLock)
{
    for (auto* const make : {mk_lock, mk_nonblock_lock}) {
        lock_struct_t* const held = make(path.c_str(), plain);
        auto const before = openDescriptors();
        auto const run = inChild([&] {
            lock_struct_t* const lock = mk_nonblock_lock(path.c_str(), plain);
            bool const refused = lock && lock->fd == 0 && errno == EAGAIN && !is_locked(lock) &&
                                 is_already_locked(lock);
            return refused && free_lock(lock) == 0 ? 0 : 1;
        });
        EXPECT_EQ(run.status, 0);
        EXPECT_EQ(run.err, "");
        EXPECT_EQ(openDescriptors(), before);
        EXPECT_EQ(rm_lock(held), 0);
    }
}

TEST_F(OpLocks, WaitForAnotherProcessToReleaseTheLock)
{
    lock_struct_t* const held = mk_lock(path.c_str(), plain);
    OtherProcess waiting([&] {
        close(held->fd); // the child's copy of the lock's descriptor
        lock_struct_t* const lock = mk_lock(path.c_str(), plain);
        return is_locked(lock) && rm_lock(lock) == 0;
    });
    EXPECT_FALSE(waiting.hasEndedWithin(100));
    EXPECT_EQ(rm_lock(held), 0);
    EXPECT_TRUE(waiting.hasEndedWithin(300000));
    EXPECT_EQ(waiting.status(), 0);
}

TEST_F(OpLocks, ReportALockFileThatCannotBeOpened)
{
    std::string const missing = dir / "none/lock";
    auto const run = inChild([&] {
        lock_struct_t* const lock = mk_lock(missing.c_str(), plain);
        bool const failed =
            lock && lock->fd < 0 && errno == ENOENT && !is_locked(lock) && !is_already_locked(lock);
        return failed && rm_lock(lock) == 0 ? 0 : 1;
    });
    EXPECT_EQ(run.status, 0);
    EXPECT_EQ(
        run.err,
        withErrno("Unable to open file \"" + missing + "\": No such file or directory.", ENOENT));
    EXPECT_EQ(run.out, run.err);
}

TEST_F(OpLocks, GiveMinusOneWhenFlockFailsOtherwise)
{
    auto const before = openDescriptors();
    CallFailure const failing("flock", ENOLCK);
    lock_struct_t* const lock = mk_lock(path.c_str(), plain);
    EXPECT_EQ(errno, ENOLCK);
    EXPECT_EQ(lock->fd, -1);
    EXPECT_EQ(openDescriptors(), before);
    EXPECT_EQ(rm_lock(lock), 0);
}

TEST_F(OpLocks, NeverTakeDescriptorZeroForALock)
{
    auto const run = inChild([&] {
        close(STDIN_FILENO);
        lock_struct_t* const lock = mk_lock(path.c_str(), plain);
        return is_locked(lock) && openDescriptors().count(0) == 0 ? rm_lock(lock) : 1;
    });
    EXPECT_EQ(run.status, 0);
}

TEST_F(OpLocks, LeaveStandardInputOpenWhenThereIsNothingToRelease)
{
    auto const run = inChild([&] {
        lock_struct_t* const held = mk_lock(path.c_str(), plain);
        auto const before = openDescriptors();
        int const result = rm_lock(mk_nonblock_lock(path.c_str(), plain));
        bool const open_still = openDescriptors() == before;
        return rm_lock(held) == 0 && result == 0 && open_still ? 0 : 1;
    });
    EXPECT_EQ(run.status, 0);
}

TEST_F(OpLocks, GiveNullWithoutMemory)
{
    for (int const number : {1, 2}) {
        AllocationFailure const failing(number);
        EXPECT_EQ(mk_lock(path.c_str(), plain), nullptr) << number;
    }
    EXPECT_NE(access(path.c_str(), F_OK), 0);
}

TEST_F(OpLocks, ReleaseByClosing)
{
    lock_struct_t* const held = mk_lock(path.c_str(), plain);
    auto const before = openDescriptors();
    int const descriptor = held->fd;
    EXPECT_EQ(free_lock(held), 0);
    EXPECT_EQ(before.count(descriptor), 1U);
    EXPECT_EQ(openDescriptors().count(descriptor), 0U);
    lock_struct_t* const lock = mk_nonblock_lock(path.c_str(), plain);
    EXPECT_TRUE(is_locked(lock));
    EXPECT_EQ(rm_lock(lock), 0);
}

TEST_F(OpLocks, ReportALockFileThatCannotBeClosed)
{
    auto const run = inChild([&] {
        lock_struct_t* const lock = mk_lock(path.c_str(), plain);
        close(lock->fd);
        return rm_lock(lock) == -1 && errno == EBADF ? 0 : 1;
    });
    EXPECT_EQ(run.status, 0);
    EXPECT_EQ(run.err, withErrno("An error occured during closing '" + path +
                                     "' file: Bad file descriptor\n",
                                 EBADF));
}

TEST_F(OpLocks, TakeNull)
{
    EXPECT_EQ(rm_lock(nullptr), -1);
    EXPECT_EQ(free_lock(nullptr), -1);
    EXPECT_FALSE(is_locked(nullptr));
    EXPECT_TRUE(is_already_locked(nullptr));
}

TEST_F(OpLocks, NameTheLockFileByTheMd5OfThePath)
{
    CString const name(mk_flock_path("abc"));
    EXPECT_STREQ(name.get(), "/var/lock/files/900150983cd24fb0d6963f7d28e17f72");
}

TEST_F(OpLocksOnHost, LockUnderTheMd5OfThePathWithoutOpeningIt)
{
    TempDir const dir;
    std::string const path = dir / "file";
    CString const name(mk_flock_path(path.c_str()));
    lock_struct_t* const lock = mk_lock(path.c_str(), hashed);
    EXPECT_TRUE(is_locked(lock));
    EXPECT_STREQ(lock->path, name.get());
    EXPECT_NE(access(path.c_str(), F_OK), 0);
    EXPECT_EQ(access(name.get(), F_OK), 0);
    EXPECT_EQ(rm_lock(lock), 0);
    EXPECT_EQ(access(name.get(), F_OK), 0);
}
