#include "util/mk_lock.h"

#include "support/child_run.h"
#include "support/fd_census.h"
#include "support/host_test.h"
#include "support/report.h"
#include "support/syscall_faults.h"
#include "support/temp_dir.h"
#include "util/errors.h"

#include <gtest/gtest.h>

#include <filesystem>
#include <stdexcept>

#include <fcntl.h>
#include <sys/file.h>

using orvek::MKLock;

namespace {

// Whether another process cannot take the plain lock of the path.
bool isHeld(std::string const& path)
{
    return inChild([&] {
               try {
                   MKLock const lock(path, MKLock::plain_name, MKLock::do_not_wait);
               } catch (std::runtime_error const&) {
                   return 1;
               }
               return 0;
           }).status == 1;
}

class MKLockOnHost : public HostTest
{
};

} // namespace

TEST(MKLock, HoldsTheLockForTheLengthOfItsScope)
{
    TempDir const dir;
    std::string const path = dir / "lock";
    {
        MKLock const lock(path, MKLock::plain_name);
        EXPECT_TRUE(isHeld(path));
    }
    EXPECT_FALSE(isHeld(path));
}

TEST(MKLock, LeavesTheLockFileButNoDescriptor)
{
    TempDir const dir;
    auto const before = openDescriptors();
    {
        MKLock const lock(dir / "lock", MKLock::plain_name);
    }
    EXPECT_TRUE(std::filesystem::exists(dir / "lock"));
    EXPECT_EQ(openDescriptors(), before);
}

TEST(MKLock, BeginsWithoutTheErrorOfAnEarlierCall)
{
    TempDir const dir;
    errno = EPROTO;
    MKLock const lock(dir / "lock", MKLock::plain_name);
    EXPECT_EQ(errno, 0);
}

TEST(MKLock, NamesThePathOfALockThatAnotherProcessHolds)
{
    TempDir const dir;
    std::string const path = dir / "lock";
    MKLock const lock(path, MKLock::plain_name);
    auto const before = openDescriptors();
    try {
        MKLock const second(path, MKLock::plain_name, MKLock::do_not_wait);
        ADD_FAILURE() << "taken twice";
    } catch (std::runtime_error const& e) {
        EXPECT_EQ(e.what(), "lock(" + path + ") failed: file is already locked");
        EXPECT_EQ(dynamic_cast<orvek::SystemError const*>(&e), nullptr);
    }
    EXPECT_EQ(openDescriptors(), before);
}

TEST(MKLock, WaitsForALockThatAnotherProcessHolds)
{
    TempDir const dir;
    std::string const path = dir / "lock";
    int begin[2];
    int done[2];
    ASSERT_EQ(pipe(begin) | pipe(done), 0);
    // Starts the child before taking the lock: a child that inherits the descriptor holds it too.
    pid_t const child = fork();
    if (child == 0) {
        char byte = 0;
        alarm(300);
        if (read(begin[0], &byte, 1) != 1)
            _exit(1);
        MKLock const lock(path, MKLock::plain_name);
        _exit(write(done[1], "x", 1) == 1 ? 0 : 1);
    }
    char byte = 'x';
    {
        MKLock const held(path, MKLock::plain_name);
        ASSERT_EQ(write(begin[1], &byte, 1), 1);
        fcntl(done[0], F_SETFL, O_NONBLOCK);
        usleep(50000);
        EXPECT_EQ(read(done[0], &byte, 1), -1);
    }
    int status = 0;
    ASSERT_EQ(waitpid(child, &status, 0), child);
    EXPECT_EQ(status, 0);
    EXPECT_EQ(read(done[0], &byte, 1), 1);
    for (int const fd : {begin[0], begin[1], done[0], done[1]})
        close(fd);
}

TEST(MKLock, RaisesASystemErrorWhenTheLockCannotBeMade)
{
    TempDir const dir;
    auto const before = openDescriptors();
    auto const run = inChild([&] {
        try {
            MKLock const lock(dir / "missing/lock", MKLock::plain_name);
        } catch (orvek::ExSystemError<ENOENT> const& e) {
            return std::string(e.what()) == "lock() failed: No such file or directory" ? 7 : 1;
        }
        return 0;
    });
    EXPECT_EQ(run.status, 7);
    EXPECT_NE(run.err.find("Unable to open file \"" + (dir / "missing/lock") + "\": No such file"),
              std::string::npos);
    EXPECT_EQ(openDescriptors(), before);
}

TEST(MKLock, RaisesASystemErrorWhenLockingFails)
{
    TempDir const dir;
    std::string const path = dir / "lock";
    auto const run = inChild([&] {
        failSystemCall(SYS_flock, ENOLCK);
        int raised = 0;
        for (auto const block : {MKLock::wait, MKLock::do_not_wait})
            try {
                errno = EPROTO;
                MKLock const lock(path, MKLock::plain_name, block);
            } catch (orvek::SystemError const& e) {
                if (std::string(e.what()) == "lock() failed: No locks available")
                    ++raised;
            }
        return raised;
    });
    EXPECT_EQ(run.status, 2);
    EXPECT_EQ(run.err, "");
}

TEST(MKLock, OnlyReportsALockFileThatCannotBeClosed)
{
    TempDir const dir;
    std::string const path = dir / "lock";
    auto const run = inChild([&] {
        auto const before = openDescriptors();
        {
            MKLock const lock(path, MKLock::plain_name);
            for (int const fd : openDescriptors())
                if (before.count(fd) == 0)
                    close(fd);
        }
        return 7;
    });
    EXPECT_EQ(run.status, 7);
    EXPECT_EQ(run.err, withErrno("An error occured during closing '" + path +
                                     "' file: Bad file descriptor\n",
                                 EBADF));
}

TEST_F(MKLockOnHost, LocksAFileNamedByThePathsMd5)
{
    std::filesystem::remove_all("/var/lock/files");
    std::filesystem::create_directories("/var/lock/files");
    TempDir const dir;
    MKLock const lock(dir / "main.cf");
    EXPECT_FALSE(std::filesystem::exists(dir / "main.cf"));
    int files = 0;
    for (auto const& entry : std::filesystem::directory_iterator("/var/lock/files")) {
        ++files;
        EXPECT_EQ(entry.path().filename().string().size(), 32U);
    }
    EXPECT_EQ(files, 1);
    EXPECT_THROW(MKLock(dir / "main.cf", MKLock::hashed_name, MKLock::do_not_wait),
                 std::runtime_error);
    EXPECT_NO_THROW(MKLock(dir / "master.cf", MKLock::hashed_name, MKLock::do_not_wait));
}
