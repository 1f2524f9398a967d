#include "postfix/maps/change_lock.h"

#include "support/temp_dir.h"

#include <gtest/gtest.h>

#include <cerrno>
#include <filesystem>
#include <string>

#include <fcntl.h>
#include <sys/file.h>

using orvek::mail::postfix::ChangeLock;

namespace {

bool is_locked_elsewhere(std::string const& directory)
{
    OpenDescriptor const fd(open(directory.c_str(), O_RDONLY | O_DIRECTORY));
    return flock(fd.get(), LOCK_EX | LOCK_NB) != 0 && errno == EWOULDBLOCK;
}

} // namespace

TEST(ChangeLock, IsHeldOnTheDirectoryOfTheMapUntilTheEndOfItsLife)
{
    TempDir const dir;
    {
        ChangeLock const lock("hash:" + dir.path() + "/virtual");
        EXPECT_TRUE(is_locked_elsewhere(dir.path()));
    }
    EXPECT_FALSE(is_locked_elsewhere(dir.path()));
}

TEST(ChangeLock, TakesAMapNamedByItsPathAlone)
{
    TempDir const dir;
    ChangeLock const lock(dir / "virtual");
    EXPECT_TRUE(is_locked_elsewhere(dir.path()));
}

TEST(ChangeLock, TakesAPathWithoutADirectoryInTheOneThatIsCurrent)
{
    EXPECT_NO_THROW(ChangeLock("hash:virtual"));
    EXPECT_FALSE(is_locked_elsewhere("."));
}

TEST(ChangeLock, LeavesNothingInTheDirectory)
{
    TempDir const dir;
    ChangeLock const lock(dir / "virtual");
    EXPECT_TRUE(std::filesystem::is_empty(dir.path()));
}

TEST(ChangeLock, PassesOverADirectoryThatIsNotThere)
{
    TempDir const dir;
    errno = EDOM;
    EXPECT_NO_THROW(ChangeLock(dir / "absent/virtual"));
    EXPECT_EQ(errno, EDOM);
}
