#include "postfix/maps/change_lock.h"

#include "support/host_test.h"
#include "support/lock_file.h"
#include "support/temp_dir.h"

#include <gtest/gtest.h>

#include <filesystem>

using orvek::mail::postfix::ChangeLock;

namespace {

class ChangeLockOnHost : public HostTest
{
protected:
    TempDir const dir;
};

} // namespace

TEST_F(ChangeLockOnHost, IsHeldOnTheMapsPathUntilItsEnd)
{
    {
        ChangeLock const lock("hash:" + (dir / "virtual"));
        EXPECT_TRUE(isLocked(dir / "virtual"));
    }
    EXPECT_FALSE(isLocked(dir / "virtual"));
}

TEST_F(ChangeLockOnHost, LeavesOtherMapsOfTheDirectoryAlone)
{
    ChangeLock const lock(dir / "virtual");
    EXPECT_TRUE(isLocked(dir / "virtual"));
    EXPECT_FALSE(isLocked(dir / "vmailbox"));
}

TEST_F(ChangeLockOnHost, LeavesNothingInTheDirectoryOfTheMap)
{
    ChangeLock const lock(dir / "virtual");
    EXPECT_TRUE(std::filesystem::is_empty(dir.path()));
}
