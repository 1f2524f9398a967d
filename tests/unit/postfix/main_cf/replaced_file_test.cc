#include "postfix/main_cf/replaced_file.h"

#include "support/fd_census.h"
#include "support/temp_dir.h"

#include <gtest/gtest.h>

#include <cerrno>
#include <chrono>
#include <csignal>
#include <filesystem>
#include <functional>

#include <fcntl.h>
#include <sys/stat.h>
#include <sys/wait.h>
#include <unistd.h>

using orvek::mail::postfix::ReplacedFile;

namespace {

struct stat look(std::string const& path)
{
    struct stat info = {};
    EXPECT_EQ(lstat(path.c_str(), &info), 0) << path;
    return info;
}

// A file that has replaced another one, for settle to judge.
class ReplacedFileTest : public ::testing::Test
{
protected:
    void SetUp() override
    {
        writeFile(path, "old");
        redate(-60);
    }

    // Runs code, which changes the path, then settle. Returns whether settle has dated the file
    // back; if so, by exactly two seconds.
    bool settlesAfter(std::function<void()> const& code)
    {
        errno = EDOM;
        ReplacedFile const file(path);
        EXPECT_EQ(errno, EDOM);
        code();
        struct stat const before = look(path);
        std::set<int> const descriptors = openDescriptors();
        errno = EDOM;
        file.settle();
        EXPECT_EQ(errno, EDOM);
        EXPECT_EQ(openDescriptors(), descriptors);
        struct stat const after = look(path);
        EXPECT_EQ(after.st_ino, before.st_ino);
        EXPECT_EQ(after.st_size, before.st_size);
        EXPECT_EQ(after.st_mode, before.st_mode);
        EXPECT_EQ(after.st_atim.tv_sec, before.st_atim.tv_sec);
        EXPECT_EQ(after.st_atim.tv_nsec, before.st_atim.tv_nsec);
        EXPECT_EQ(after.st_mtim.tv_nsec, before.st_mtim.tv_nsec);
        if (after.st_mtim.tv_sec == before.st_mtim.tv_sec)
            return false;
        EXPECT_EQ(after.st_mtim.tv_sec, before.st_mtim.tv_sec - 2);
        return true;
    }

    void replace() const
    {
        writeFile(path + ".tmp", "new");
        std::filesystem::rename(path + ".tmp", path);
    }

    // Moves the file's date by seconds.
    void redate(time_t seconds) const
    {
        timespec times[2] = {{0, UTIME_OMIT}, look(path).st_mtim};
        times[1].tv_sec += seconds;
        ASSERT_EQ(utimensat(AT_FDCWD, path.c_str(), times, 0), 0);
    }

    TempDir const dir;
    std::string const path = dir / "main.cf";
};

} // namespace

TEST_F(ReplacedFileTest, DatesAFileBackThatWasRenamedIntoPlace)
{
    EXPECT_TRUE(settlesAfter([&] { replace(); }));
}

TEST_F(ReplacedFileTest, LeavesAFileAloneThatWouldPredateItsPredecessor)
{
    redate(+90);
    EXPECT_FALSE(settlesAfter([&] { replace(); }));
    redate(-2);
    EXPECT_TRUE(settlesAfter([&] { replace(); }));
    EXPECT_TRUE(settlesAfter([&] { replace(); })) << "behind one that was dated back itself";
}

TEST_F(ReplacedFileTest, DatesAFileBackWhereThereWasNone)
{
    std::filesystem::remove(path);
    EXPECT_TRUE(settlesAfter([&] { replace(); }));
}

TEST_F(ReplacedFileTest, LeavesTheFileThatStoodThereBefore)
{
    EXPECT_FALSE(settlesAfter([] {}));
    EXPECT_FALSE(settlesAfter([&] { writeFile(path, "written in place"); }));
}

TEST_F(ReplacedFileTest, LeavesAFileThatSomebodyHasOpenForWriting)
{
    int fd = -1;
    EXPECT_FALSE(settlesAfter([&] {
        replace();
        fd = open(path.c_str(), O_WRONLY | O_APPEND);
    }));
    close(fd);
}

TEST_F(ReplacedFileTest, LeavesAFileThatAnotherProcessHasOpenForWriting)
{
    pid_t child = -1;
    EXPECT_FALSE(settlesAfter([&] {
        replace();
        int ready[2];
        ASSERT_EQ(pipe(ready), 0);
        child = fork();
        if (child == 0) {
            alarm(300);
            bool const opened = open(path.c_str(), O_RDWR) >= 0;
            _exit(write(ready[1], "x", 1) == 1 && opened ? pause() : 1);
        }
        char byte = 0;
        EXPECT_EQ(read(ready[0], &byte, 1), 1);
        close(ready[0]);
        close(ready[1]);
    }));
    ASSERT_GT(child, 1);
    kill(child, SIGKILL);
    waitpid(child, nullptr, 0);
}

TEST_F(ReplacedFileTest, DatesAFileBackThatSomebodyReads)
{
    int fd = -1;
    EXPECT_TRUE(settlesAfter([&] {
                    replace();
                    fd = open(path.c_str(), O_RDONLY);
                }) ||
                fd < 0);
    close(fd);
}

TEST_F(ReplacedFileTest, LeavesAFileThatIsNotOfAboutNow)
{
    EXPECT_FALSE(settlesAfter([&] {
        replace();
        redate(-3);
    }));
    EXPECT_FALSE(settlesAfter([&] {
        replace();
        redate(+60);
    }));
}

TEST_F(ReplacedFileTest, LeavesASymbolicLinkAndItsTarget)
{
    std::string const target = dir / "target";
    writeFile(target, "x");
    time_t const before = look(target).st_mtim.tv_sec;
    EXPECT_FALSE(settlesAfter([&] {
        std::filesystem::remove(path);
        std::filesystem::create_symlink(target, path);
    }));
    EXPECT_EQ(look(target).st_mtim.tv_sec, before);
}

TEST_F(ReplacedFileTest, NeitherWaitsForANamedPipeNorDatesIt)
{
    EXPECT_FALSE(settlesAfter([&] {
        std::filesystem::remove(path);
        ASSERT_EQ(mkfifo(path.c_str(), 0600), 0);
    }));
}

TEST_F(ReplacedFileTest, DoesNothingWithoutAFile)
{
    ReplacedFile const file(path);
    std::filesystem::remove(path);
    file.settle();
    EXPECT_FALSE(std::filesystem::exists(path));
}

TEST_F(ReplacedFileTest, LetsWritersInAgain)
{
    EXPECT_TRUE(settlesAfter([&] { replace(); }));
    int const fd = open(path.c_str(), O_WRONLY | O_NONBLOCK);
    EXPECT_GE(fd, 0);
    close(fd);
}

// A writer that opens the file while it is judged must not kill this process and must succeed.
TEST_F(ReplacedFileTest, OutlivesWritersThatComeAtTheSameMoment)
{
    auto const end = std::chrono::steady_clock::now() + std::chrono::milliseconds(500);
    pid_t const child = fork();
    if (child == 0) {
        while (std::chrono::steady_clock::now() < end) {
            int const fd = open(path.c_str(), O_WRONLY);
            if (fd < 0)
                _exit(1);
            close(fd);
        }
        _exit(0);
    }
    ASSERT_GT(child, 1);
    while (std::chrono::steady_clock::now() < end)
        ReplacedFile(path).settle();
    int status = -1;
    waitpid(child, &status, 0);
    EXPECT_EQ(status, 0);
}
