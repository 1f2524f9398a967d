#include "lib/files/semaphores.h"

#include "lib/conf/autoprepend.h"
#include "support/call_faults.h"
#include "support/child_run.h"
#include "support/fd_census.h"
#include "support/report.h"
#include "support/temp_dir.h"

#include <gtest/gtest.h>

#include <csignal>
#include <filesystem>
#include <functional>
#include <vector>

#include <fcntl.h>
#include <poll.h>
#include <unistd.h>

namespace {

// Puts the product's root directory into the cached configuration. Each test runs in a child.
class Semaphores : public ::testing::Test
{
protected:
    ChildRun run(std::function<int()> const& code) const
    {
        return inChild([&] {
            arrayInitialized = 1;
            theOrvConfArray[_PRODUCT_ROOT_D_INDEX] = root.c_str();
            return code();
        });
    }

    TempDir dir;
    std::string const root = dir / "root";
    std::string const file = root + "/var/utilities.sem";
};

// The result that another process gets for the semaphore.
int otherProcessGets(long semnum)
{
    pid_t const child = fork();
    if (child == 0)
        _exit(sem_lock_nonblock(semnum) == 0 ? 0 : 1);
    int status = -1;
    waitpid(child, &status, 0);
    return status == 0 ? 0 : -1;
}

} // namespace

TEST_F(Semaphores, MakeTheirFileAndItsDirectory)
{
    auto const result = run([] {
        umask(0);
        init_sem();
        return errno;
    });
    EXPECT_EQ(result.status, 0);
    EXPECT_EQ(result.err, "");
    EXPECT_EQ(modeOf(file), 0600U);
    EXPECT_EQ(modeOf(root + "/var"), 0755U);
}

TEST_F(Semaphores, OpenTheirFileForWritingOnceAndKeepIt)
{
    std::filesystem::create_directories(root + "/var");
    writeFile(file, "text");
    auto const result = run([] {
        auto const before = openDescriptors();
        init_sem();
        auto const after = openDescriptors();
        init_sem();
        bool const one = after.size() == before.size() + 1 && openDescriptors() == after;
        int const mode = fcntl(*after.rbegin(), F_GETFL) & O_ACCMODE;
        shutdown_sem();
        return one && mode == O_WRONLY && openDescriptors() == before ? 0 : 1;
    });
    EXPECT_EQ(result.status, 0);
    EXPECT_EQ(readFile(file), "text");
}

TEST_F(Semaphores, EndTheProcessWithoutTheirFile)
{
    writeFile(root, "");
    auto const result = run([] {
        init_sem();
        return 7;
    });
    EXPECT_EQ(result.status, 1);
    EXPECT_EQ(result.err,
              withErrno("failed to open semaphore file " + file + ": Not a directory", ENOTDIR));
}

TEST_F(Semaphores, EndTheProcessWhenTheirDirectoryCannotBeMade)
{
    std::filesystem::create_directory(root);
    std::filesystem::create_symlink(dir / "none", root + "/var");
    auto const result = run([] {
        init_sem();
        return 7;
    });
    EXPECT_EQ(result.status, 1);
    EXPECT_EQ(result.err,
              withErrno("failed to open semaphore file " + file + ": Not a directory", ENOTDIR));
}

TEST_F(Semaphores, EndTheProcessForALinkOrFifoInstead)
{
    std::filesystem::create_directories(root + "/var");
    auto const words = [&] {
        return run([] {
                   init_sem();
                   return 7;
               })
            .err;
    };
    std::filesystem::create_symlink(dir / "new", file);
    EXPECT_EQ(words(),
              withErrno("failed to open semaphore file " + file + ": " + strerror(ELOOP), ELOOP));
    EXPECT_FALSE(std::filesystem::exists(dir / "new"));
    std::filesystem::remove(file);
    ASSERT_EQ(mkfifo(file.c_str(), 0600), 0);
    EXPECT_EQ(words(),
              withErrno("failed to open semaphore file " + file + ": " + strerror(EINVAL), EINVAL));
}

TEST_F(Semaphores, EndTheProcessForARootThatIsTooLong)
{
    std::string const longest(4095, 'a');
    auto const result = run([&] {
        theOrvConfArray[_PRODUCT_ROOT_D_INDEX] = longest.c_str();
        init_sem();
        return 7;
    });
    EXPECT_EQ(result.status, 1);
    EXPECT_EQ(result.err,
              withErrno("failed to open semaphore file " + longest + ": " + strerror(ENAMETOOLONG),
                        ENAMETOOLONG));
}

TEST_F(Semaphores, LockOutOtherProcessesUntilTheyAreDropped)
{
    for (auto* const lock : {sem_lock, sem_lock_nonblock}) {
        auto const result = run([=] {
            init_sem();
            bool const taken = lock(3) == 0 && otherProcessGets(3) == -1;
            bool const dropped = sem_unlock(3) == 0 && otherProcessGets(3) == 0;
            return taken && dropped ? 0 : 1;
        });
        EXPECT_EQ(result.status, 0);
        EXPECT_EQ(result.err, "");
    }
}

TEST_F(Semaphores, AreIndependentOfEachOther)
{
    auto const result = run([] {
        init_sem();
        sem_lock(3);
        sem_lock(0);
        return otherProcessGets(2) == 0 && otherProcessGets(4) == 0 && otherProcessGets(3) == -1 &&
                       otherProcessGets(0) == -1
                   ? 0
                   : 1;
    });
    EXPECT_EQ(result.status, 0);
}

TEST_F(Semaphores, AreDroppedByShutdown)
{
    auto const result = run([] {
        init_sem();
        sem_lock(3);
        shutdown_sem();
        init_sem();
        return otherProcessGets(3);
    });
    EXPECT_EQ(result.status, 0);
}

TEST_F(Semaphores, AreWaitedForThroughSignals)
{
    auto const result = run([] {
        init_sem();
        sem_lock(3);
        int ends[2];
        if (pipe(ends) != 0)
            return 2;
        pid_t const child = fork();
        if (child == 0) {
            struct sigaction action = {};
            action.sa_handler = [](int) {};
            sigaction(SIGUSR1, &action, nullptr);
            bool const told = write(ends[1], "1", 1) == 1;
            _exit(told && sem_lock(3) == 0 && write(ends[1], "2", 1) == 1 ? 0 : 1);
        }
        char byte = 0;
        if (read(ends[0], &byte, 1) != 1)
            return 3;
        pollfd watched{ends[0], POLLIN, 0};
        for (int i = 0; i < 5; ++i) {
            kill(child, SIGUSR1);
            if (poll(&watched, 1, 20) != 0)
                return 4;
        }
        sem_unlock(3);
        if (poll(&watched, 1, 300000) != 1)
            return 5;
        int status = -1;
        waitpid(child, &status, 0);
        return status == 0 ? 0 : 6;
    });
    EXPECT_EQ(result.status, 0);
}

TEST_F(Semaphores, AreAskedForAgainWhenASignalComesInBetween)
{
    for (auto* const lock : {sem_lock, sem_lock_nonblock, sem_unlock}) {
        auto const result = run([=] {
            init_sem();
            CallFailure const failure("fcntl", EINTR);
            return lock(3);
        });
        EXPECT_EQ(result.status, 0);
        EXPECT_EQ(result.err, "");
    }
}

TEST_F(Semaphores, AreHeldByAnotherProcessForBothErrors)
{
    for (int const error : {EAGAIN, EACCES}) {
        auto const result = run([=] {
            init_sem();
            CallFailure const failure("fcntl", error);
            return sem_lock_nonblock(3) == -1 ? 0 : 1;
        });
        EXPECT_EQ(result.status, 0);
        EXPECT_EQ(result.err, "");
    }
}

TEST_F(Semaphores, EndTheProcessForAnyOtherError)
{
    for (auto* const lock : {sem_lock, sem_lock_nonblock, sem_unlock}) {
        auto const result = run([=] {
            init_sem();
            CallFailure const failure("fcntl", ENOLCK);
            lock(3);
            return 7;
        });
        EXPECT_EQ(result.status, 1);
        EXPECT_EQ(result.err,
                  withErrno(std::string(lock == sem_unlock ? "sem_unlock" : "sem_lock") +
                                "() failed for semnum 3: " + strerror(ENOLCK),
                            ENOLCK));
    }
}

TEST_F(Semaphores, EndTheProcessForANegativeNumber)
{
    std::string const text = " failed for semnum -1: semnum must not be negative\n";
    for (auto* const lock : {sem_lock, sem_lock_nonblock, sem_unlock}) {
        auto const result = run([=] {
            init_sem();
            lock(-1);
            return 7;
        });
        EXPECT_EQ(result.status, 1);
        EXPECT_EQ(result.err, (lock == sem_unlock ? "sem_unlock()" : "sem_lock()") + text);
    }
}

TEST_F(Semaphores, EndTheProcessWithoutAnOpenFile)
{
    for (auto* const lock : {sem_lock, sem_lock_nonblock, sem_unlock}) {
        auto const result = run([=] {
            lock(3);
            return 7;
        });
        EXPECT_EQ(result.status, 1);
        EXPECT_EQ(result.err,
                  withErrno(std::string(lock == sem_unlock ? "sem_unlock" : "sem_lock") +
                                "() failed for semnum 3: Bad file descriptor",
                            EBADF));
    }
}

TEST_F(Semaphores, ReportAFileThatCannotBeClosed)
{
    auto const result = run([] {
        init_sem();
        CallFailure const failing("close", EIO);
        shutdown_sem();
        return 7;
    });
    EXPECT_EQ(result.status, 7);
    EXPECT_EQ(result.err,
              withErrno("shutdown_sem(): failed to close semaphore file: Input/output error", EIO));
}
