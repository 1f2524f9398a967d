#include "lib/files/saved_directory.h"

#include "support/call_faults.h"
#include "support/fd_census.h"
#include "support/temp_dir.h"

#include <gtest/gtest.h>

#include <cerrno>
#include <filesystem>
#include <set>
#include <string>

#include <fcntl.h>
#include <sys/stat.h>

namespace fs = std::filesystem;

namespace {

// By what it is: a directory that has gone has no path.
std::string whereWeAre()
{
    struct stat info = {};
    EXPECT_EQ(stat(".", &info), 0);
    return std::to_string(info.st_dev) + " " + std::to_string(info.st_ino);
}

} // namespace

TEST(SavedDirectory, ComesBackAndKeepsErrno)
{
    fs::path const before = fs::current_path();
    TempDir const dir;
    SavedDirectory saved;
    ASSERT_TRUE(saved.save());
    fs::current_path(dir.path());
    errno = ENOSPC;
    saved.restore();
    EXPECT_EQ(errno, ENOSPC);
    EXPECT_EQ(fs::current_path(), before);
}

TEST(SavedDirectory, ComesBackToADirectoryThatHasGone)
{
    fs::path const before = fs::current_path();
    TempDir const dir;
    fs::create_directory(dir / "gone");
    fs::current_path(dir / "gone");
    std::string const gone = whereWeAre();
    fs::remove(dir / "gone");
    SavedDirectory saved;
    ASSERT_TRUE(saved.save());
    fs::current_path(dir.path());
    errno = 0;
    saved.restore();
    EXPECT_EQ(errno, 0);
    EXPECT_EQ(whereWeAre(), gone);
    fs::current_path(before);
}

TEST(SavedDirectory, ComesBackToADirectoryThatWasMoved)
{
    fs::path const before = fs::current_path();
    TempDir const dir;
    fs::create_directory(dir / "old");
    fs::current_path(dir / "old");
    SavedDirectory saved;
    ASSERT_TRUE(saved.save());
    fs::current_path(dir.path());
    fs::rename(dir / "old", dir / "new");
    saved.restore();
    EXPECT_EQ(fs::current_path(), fs::canonical(dir / "new"));
    fs::current_path(before);
}

TEST(SavedDirectory, TellsThatADirectoryCannotBeKept)
{
    CallFailure const failing("open", EMFILE);
    SavedDirectory saved;
    EXPECT_FALSE(saved.save());
    EXPECT_EQ(errno, EMFILE);
}

TEST(SavedDirectory, LeavesNoDescriptorToAProgram)
{
    std::set<int> const before = openDescriptors();
    {
        SavedDirectory saved;
        ASSERT_TRUE(saved.save());
        for (int const descriptor : openDescriptors())
            EXPECT_TRUE(before.count(descriptor) || fcntl(descriptor, F_GETFD) == FD_CLOEXEC);
        EXPECT_EQ(openDescriptors().size(), before.size() + 1);
    }
    EXPECT_EQ(openDescriptors(), before);
}
