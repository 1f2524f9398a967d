#include "lib/files/saved_directory.h"

#include "support/temp_dir.h"

#include <gtest/gtest.h>

#include <cerrno>
#include <filesystem>

namespace fs = std::filesystem;

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

TEST(SavedDirectory, StaysWhenTheDirectoryHasGone)
{
    fs::path const before = fs::current_path();
    TempDir const dir;
    fs::create_directory(dir / "gone");
    fs::current_path(dir / "gone");
    SavedDirectory saved;
    ASSERT_TRUE(saved.save());
    fs::current_path(dir.path());
    fs::remove(dir / "gone");
    errno = 0;
    saved.restore();
    EXPECT_EQ(errno, 0);
    EXPECT_EQ(fs::current_path(), fs::canonical(dir.path()));
    fs::current_path(before);
}

TEST(SavedDirectory, CannotSaveADirectoryThatHasGone)
{
    fs::path const before = fs::current_path();
    TempDir const dir;
    fs::create_directory(dir / "gone");
    fs::current_path(dir / "gone");
    fs::remove(dir / "gone");
    SavedDirectory saved;
    EXPECT_FALSE(saved.save());
    EXPECT_EQ(errno, ENOENT);
    fs::current_path(before);
}
