#include "process/nonblock_write.h"

#include "process/fd_owner.h"
#include "support/call_faults.h"
#include "support/launch_test.h"
#include "util/errors.h"

#include <gtest/gtest.h>

#include <vector>

using orvek::PipeOwner;
using orvek::SystemError;
using orvek::process::nonblock_write;

namespace {

class NonblockWriteTest : public LaunchTest
{
protected:
    static PipeOwner openNonBlocking()
    {
        PipeOwner ends = orvek::openPipe("pipe");
        orvek::setNonBlocking(ends.writeEnd.fd, "fcntl");
        return ends;
    }
};

} // namespace

TEST_F(NonblockWriteTest, WritesAndKeepsErrno)
{
    PipeOwner const ends = openNonBlocking();
    errno = ENOSPC;
    EXPECT_EQ(nonblock_write(ends.writeEnd.fd, "abc", 3), 3U);
    EXPECT_EQ(errno, ENOSPC);
    char bytes[4] = {};
    EXPECT_EQ(read(ends.readEnd.fd, bytes, 4), 3);
    EXPECT_STREQ(bytes, "abc");
}

TEST_F(NonblockWriteTest, WritesWhatFits)
{
    PipeOwner const ends = openNonBlocking();
    std::vector<char> const data(1 << 20, 'x');
    unsigned long const written = nonblock_write(ends.writeEnd.fd, data.data(), data.size());
    EXPECT_GT(written, 0U);
    EXPECT_LT(written, data.size());
}

// A pipe takes up to a page as a whole or not at all. So it refuses a piece that is larger than
// the room left in a page.
TEST_F(NonblockWriteTest, TriesEverSmallerPiecesAndKeepsErrno)
{
    PipeOwner const ends = openNonBlocking();
    ASSERT_GE(fcntl(ends.writeEnd.fd, F_SETPIPE_SZ, 4096), 0);
    std::vector<char> const data(4096, 'x');
    EXPECT_EQ(nonblock_write(ends.writeEnd.fd, data.data(), 3000), 3000U);
    errno = ENOSPC;
    EXPECT_EQ(nonblock_write(ends.writeEnd.fd, data.data(), data.size()), 1024U);
    EXPECT_EQ(errno, ENOSPC);
}

TEST_F(NonblockWriteTest, FailsWhenNotEvenOneByteFits)
{
    PipeOwner const ends = openNonBlocking();
    ASSERT_GE(fcntl(ends.writeEnd.fd, F_SETPIPE_SZ, 4096), 0);
    std::vector<char> const data(4096, 'x');
    EXPECT_EQ(nonblock_write(ends.writeEnd.fd, data.data(), data.size()), data.size());
    EXPECT_EQ(textOf<SystemError>([&] { nonblock_write(ends.writeEnd.fd, data.data(), 100); }),
              "write: Resource temporarily unavailable");
}

TEST_F(NonblockWriteTest, RefusesToWriteNothing)
{
    PipeOwner const ends = openNonBlocking();
    errno = ENOSPC;
    EXPECT_EQ(textOf<SystemError>([&] { nonblock_write(ends.writeEnd.fd, "", 0); }),
              "write: No space left on device");
}

TEST_F(NonblockWriteTest, RaisesAnyOtherFailure)
{
    EXPECT_EQ(textOf<SystemError>([] { nonblock_write(-1, "x", 1); }),
              "write: Bad file descriptor");
}

TEST_F(NonblockWriteTest, RepeatsAnInterruptedWriteWhole)
{
    PipeOwner const ends = openNonBlocking();
    CallFailure const failure("write", EINTR);
    errno = ENOSPC;
    EXPECT_EQ(nonblock_write(ends.writeEnd.fd, "abc", 3), 3U);
    EXPECT_EQ(errno, ENOSPC);
}

TEST_F(NonblockWriteTest, GivesTheNothingThatWasWritten)
{
    PipeOwner const ends = openNonBlocking();
    CallFailure const failure("write", 0, 1, 0);
    EXPECT_EQ(nonblock_write(ends.writeEnd.fd, "abc", 3), 0U);
}
