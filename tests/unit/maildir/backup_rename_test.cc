#include "maildir/maildir_manager.h"

#include "support/child_run.h"
#include "support/syscall_faults.h"
#include "support/temp_dir.h"

#include <boost/filesystem/exception.hpp>
#include <gtest/gtest.h>

#include <cerrno>
#include <filesystem>

#include <sys/stat.h>
#include <unistd.h>

using orvek::mail::backupRename;
using path = boost::filesystem::path;

namespace {

int stats_to_interrupt = 0;

std::string nameOfBackup(std::string const& source)
{
    struct stat info = {};
    EXPECT_EQ(stat(source.c_str(), &info), 0);
    return source + ".OrvekSaved." + std::to_string(info.st_ino);
}

} // namespace

extern "C" {

int __real_fstatat(int dir, char const* name, struct stat* info, int flags);

int __wrap_fstatat(int dir, char const* name, struct stat* info, int flags)
{
    if (stats_to_interrupt == 0)
        return __real_fstatat(dir, name, info, flags);
    --stats_to_interrupt;
    errno = EINTR;
    return -1;
}

} // extern "C"

TEST(BackupRename, RenamesTheSourceAfterItsInodeInPlace)
{
    TempDir const dir;
    std::filesystem::create_directory(dir / "d");
    writeFile(dir / "d/letter", "text");
    std::string const expected = nameOfBackup(dir / "d");
    path target;
    EXPECT_TRUE(backupRename(dir / "d", target));
    EXPECT_EQ(target, expected);
    EXPECT_FALSE(std::filesystem::exists(dir / "d"));
    EXPECT_EQ(readFile(expected + "/letter"), "text");
}

TEST(BackupRename, NamesTheInodeOfALinkAndMovesTheLink)
{
    TempDir const dir;
    std::filesystem::create_directory(dir / "d");
    std::filesystem::create_symlink("d", dir / "link");
    struct stat info = {};
    ASSERT_EQ(lstat((dir / "link").c_str(), &info), 0);
    path target;
    EXPECT_TRUE(backupRename(dir / "link", target));
    EXPECT_EQ(target, (dir / "link") + ".OrvekSaved." + std::to_string(info.st_ino));
    EXPECT_TRUE(std::filesystem::is_symlink(target.string()));
    EXPECT_TRUE(std::filesystem::is_directory(dir / "d"));
}

TEST(BackupRename, AddsWhatNobodyForeseesToANameThatIsTaken)
{
    TempDir const dir;
    for (int kind = 0; kind < 3; ++kind) {
        std::string const source = dir / "d" + std::to_string(kind);
        std::filesystem::create_directory(source);
        std::string const taken = nameOfBackup(source);
        if (kind == 0)
            std::filesystem::create_directories(taken + "/x");
        else if (kind == 1)
            writeFile(taken, "");
        else
            std::filesystem::create_symlink("/", taken);
        path target;
        EXPECT_TRUE(backupRename(source, target));
        EXPECT_EQ(target.native().substr(0, taken.size() + 1), taken + ".");
        EXPECT_EQ(target.native().size(), taken.size() + 7);
        EXPECT_TRUE(std::filesystem::is_directory(target.native()));
        EXPECT_TRUE(std::filesystem::exists(std::filesystem::symlink_status(taken)));
        EXPECT_FALSE(std::filesystem::exists(source));
    }
}

TEST(BackupRename, SavesNothingAndEmptiesTheTargetWithoutASource)
{
    TempDir const dir;
    path target = "something";
    EXPECT_TRUE(backupRename(dir / "missing", target));
    EXPECT_EQ(target, "");
    EXPECT_TRUE(std::filesystem::is_empty(dir.path()));
}

TEST(BackupRename, SavesNothingWhenAFileBlocksThePath)
{
    TempDir const dir;
    writeFile(dir / "file", "");
    path target = "something";
    EXPECT_TRUE(backupRename(dir / "file/d", target));
    EXPECT_EQ(target, "");
}

TEST(BackupRename, LeavesTheTargetWhenStatOfTheSourceFails)
{
    TempDir const dir;
    std::filesystem::create_symlink("loop", dir / "loop");
    path target = "something";
    errno = 0;
    EXPECT_FALSE(backupRename(dir / "loop/d", target));
    EXPECT_EQ(errno, ELOOP);
    EXPECT_EQ(target, "something");
    EXPECT_TRUE(std::filesystem::is_symlink(dir / "loop"));
}

TEST(BackupRename, LooksAgainAfterASignal)
{
    TempDir const dir;
    std::filesystem::create_directory(dir / "d");
    std::string const expected = nameOfBackup(dir / "d");
    stats_to_interrupt = 3;
    path target;
    EXPECT_TRUE(backupRename(dir / "d", target));
    EXPECT_EQ(stats_to_interrupt, 0);
    EXPECT_EQ(target, expected);
}

TEST(BackupRename, RaisesTheLibrarysErrorWhenTheSourceCannotBeRenamed)
{
    TempDir const dir;
    std::filesystem::create_directory(dir / "d");
    std::string const expected = nameOfBackup(dir / "d");
    std::filesystem::create_directory(expected);
    writeFile(expected + "/older", "");
    auto const run = inChild([&] {
        failSystemCall(SYS_renameat2, EIO);
        path target;
        try {
            backupRename(dir / "d", target);
        } catch (boost::filesystem::filesystem_error const& e) {
            return e.code().value() == ENOTEMPTY && e.path1() == dir / "d" && e.path2() == expected
                       ? 0
                       : 1;
        }
        return 2;
    });
    EXPECT_EQ(run.status, 0);
    EXPECT_TRUE(std::filesystem::exists(dir / "d"));
    EXPECT_TRUE(std::filesystem::exists(expected + "/older"));
}
