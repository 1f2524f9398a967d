#include "process/fd_owner.h"

#include "support/call_faults.h"
#include "support/child_run.h"
#include "support/launch_test.h"
#include "util/errors.h"

#include <gtest/gtest.h>

#include <memory>
#include <stdexcept>
#include <utility>

using orvek::FdOwner;
using orvek::PipeOwner;
using orvek::SystemError;

namespace {

class FdOwnerTest : public LaunchTest
{
};
using PipeOwnerTest = FdOwnerTest;

bool isOpen(int fd)
{
    return fcntl(fd, F_GETFD) != -1;
}

// The number of a closed descriptor.
int closedDescriptor()
{
    int const fd = dup(0);
    close(fd);
    return fd;
}

} // namespace

TEST_F(FdOwnerTest, OwnsNothingAtFirst)
{
    FdOwner owner;
    EXPECT_EQ(owner.owned, -1);
    EXPECT_EQ(owner.fd, -1);
    owner.close();
}

TEST_F(FdOwnerTest, ClosesWhatItOwns)
{
    int fd = -1;
    {
        FdOwner const owner(dup(0));
        fd = owner.fd;
        EXPECT_EQ(owner.owned, fd);
        EXPECT_TRUE(isOpen(fd));
    }
    EXPECT_FALSE(isOpen(fd));
}

TEST_F(FdOwnerTest, LeavesABorrowedDescriptorOpen)
{
    {
        FdOwner owner = FdOwner::borrowed(0);
        EXPECT_EQ(owner.owned, -1);
        EXPECT_EQ(owner.fd, 0);
        owner.close();
        EXPECT_EQ(owner.fd, -1);
    }
    EXPECT_TRUE(isOpen(0));
}

TEST_F(FdOwnerTest, HandsItsDescriptorOverWhenMoved)
{
    FdOwner one(dup(0));
    int const fd = one.fd;
    FdOwner two(std::move(one));
    EXPECT_EQ(one.owned, -1); // NOLINT(bugprone-use-after-move): the test is about this
    EXPECT_EQ(one.fd, -1);
    FdOwner three(dup(0));
    int const replaced = three.fd;
    three = std::move(two);
    EXPECT_EQ(three.owned, fd);
    EXPECT_FALSE(isOpen(replaced));
    EXPECT_TRUE(isOpen(fd));
}

TEST_F(FdOwnerTest, RaisesAFailedCloseAndIsEmptyAllTheSame)
{
    FdOwner owner(closedDescriptor());
    EXPECT_EQ(textOf<SystemError>([&] { owner.close(); }), "close: Bad file descriptor");
    EXPECT_EQ(owner.owned, -1);
    EXPECT_EQ(owner.fd, -1);
}

TEST_F(FdOwnerTest, RepeatsACloseThatASignalHasInterrupted)
{
    FdOwner owner(dup(0));
    CallFailure const failure("close", EINTR);
    owner.close();
    EXPECT_EQ(openDescriptors(), descriptors);
}

TEST_F(FdOwnerTest, RaisesAFailedCloseFromItsDestructor)
{
    EXPECT_EQ(textOf<SystemError>([] { FdOwner const owner(closedDescriptor()); }),
              "close: Bad file descriptor");
}

TEST_F(FdOwnerTest, IsQuietAndKeepsErrnoDuringAnException)
{
    int after = 0;
    EXPECT_EQ(textOf<std::runtime_error>([&] {
                  struct Observer
                  {
                      int& seen;
                      ~Observer() { seen = errno; }
                  } const observer{after};
                  FdOwner const owner(closedDescriptor());
                  errno = ENOSPC;
                  throw std::runtime_error("the first one");
              }),
              "the first one");
    EXPECT_EQ(after, ENOSPC);
}

TEST_F(PipeOwnerTest, ClosesBothEnds)
{
    PipeOwner const made = orvek::openPipe("pipe");
    EXPECT_EQ(openDescriptors().size(), descriptors.size() + 2);
}

TEST_F(PipeOwnerTest, ConnectsItsWriteEndToItsReadEnd)
{
    PipeOwner const made = orvek::openPipe("pipe");
    EXPECT_EQ(write(made.writeEnd.fd, "x", 1), 1);
    char byte = 0;
    EXPECT_EQ(read(made.readEnd.fd, &byte, 1), 1);
    EXPECT_EQ(byte, 'x');
}

TEST_F(PipeOwnerTest, ClosesTheReadEndAlsoWhenTheWriteEndFails)
{
    int read_end = -1;
    EXPECT_EQ(textOf<SystemError>([&] {
                  PipeOwner const made = orvek::openPipe("pipe");
                  read_end = made.readEnd.fd;
                  close(made.writeEnd.fd);
              }),
              "pipe read-end close: Bad file descriptor");
    EXPECT_FALSE(isOpen(read_end));
}

TEST_F(PipeOwnerTest, ClosesTheWriteEndBeforeRaisingTheReadEndsFailure)
{
    int write_end = -1;
    EXPECT_EQ(textOf<SystemError>([&] {
                  PipeOwner const made = orvek::openPipe("pipe");
                  write_end = made.writeEnd.fd;
                  close(made.readEnd.fd);
              }),
              "pipe read-end close: Bad file descriptor");
    EXPECT_FALSE(isOpen(write_end));
}

TEST_F(PipeOwnerTest, RaisesTheFirstErrorNumberOfTwo)
{
    EXPECT_EQ(textOf<SystemError>([&] {
                  PipeOwner const made = orvek::openPipe("pipe");
                  close(made.readEnd.fd);
                  CallFailure::set("close", EIO);
              }),
              "pipe read-end close: Input/output error");
    EXPECT_EQ(textOf<SystemError>([&] {
                  PipeOwner const made = orvek::openPipe("pipe");
                  close(made.writeEnd.fd); // closed before the call that fails
                  CallFailure::set("close", EIO, 2);
              }),
              "pipe read-end close: Bad file descriptor");
}

TEST_F(PipeOwnerTest, IsQuietWhileAnExceptionIsInFlight)
{
    EXPECT_EQ(textOf<std::runtime_error>([&] {
                  PipeOwner const made = orvek::openPipe("pipe");
                  close(made.readEnd.fd);
                  close(made.writeEnd.fd);
                  throw std::runtime_error("the first one");
              }),
              "the first one");
}

TEST_F(PipeOwnerTest, RaisesTheGivenWordWhenThereAreNoDescriptorsLeft)
{
    for (int left = 0; left < 2; ++left) {
        DescriptorShortage const shortage(left);
        EXPECT_EQ(textOf<SystemError>([] { orvek::openPipe("stdin pipe"); }),
                  "stdin pipe: Too many open files");
    }
}

TEST_F(PipeOwnerTest, NeverTakesThePlaceOfAClosedStandardStream)
{
    for (int closed = 1; closed < 8; ++closed) {
        auto const run = inChild([closed] {
            for (int fd = 0; fd < 3; ++fd)
                if (closed & (1 << fd))
                    close(fd);
            auto const before = openDescriptors();
            {
                PipeOwner const made = orvek::openPipe("pipe");
                if (made.readEnd.fd < 3 || made.writeEnd.fd < 3 ||
                    openDescriptors().size() != before.size() + 2)
                    return 1;
            }
            return openDescriptors() == before ? 0 : 2;
        });
        EXPECT_EQ(run.status, 0) << "with closed streams " << closed;
    }
}

TEST_F(PipeOwnerTest, LeavesNothingWhenAnEndCannotBeMoved)
{
    auto const run = inChild([] {
        close(0);
        close(1);
        auto const before = openDescriptors();
        try {
            DescriptorShortage const nothing_above_two(3);
            orvek::openPipe("pipe");
        } catch (SystemError const&) {
            return openDescriptors() == before ? 0 : 1;
        }
        return 2;
    });
    EXPECT_EQ(run.status, 0);
}

TEST_F(FdOwnerTest, KeptAboveStreamsRaisesTheGivenWordForFailedOpens)
{
    errno = EACCES;
    EXPECT_EQ(textOf<SystemError>([] { orvek::keptAboveStreams(-1, "stdin /dev/null open"); }),
              "stdin /dev/null open: Permission denied");
}

TEST_F(FdOwnerTest, SetNonBlockingKeepsTheOtherFlags)
{
    FdOwner const null(open("/dev/null", O_WRONLY | O_APPEND));
    orvek::setNonBlocking(null.fd, "fcntl");
    EXPECT_EQ(fcntl(null.fd, F_GETFL) & (O_APPEND | O_NONBLOCK), O_APPEND | O_NONBLOCK);
    EXPECT_EQ(textOf<SystemError>([] { orvek::setNonBlocking(-1, "fcntl"); }),
              "fcntl: Bad file descriptor");
}

TEST_F(FdOwnerTest, SetNonBlockingRepeatsWhatASignalHasInterrupted)
{
    for (int call = 1; call <= 2; ++call) {
        FdOwner const null(open("/dev/null", O_WRONLY));
        CallFailure const failure("fcntl", EINTR, call);
        orvek::setNonBlocking(null.fd, "fcntl");
        EXPECT_TRUE(fcntl(null.fd, F_GETFL) & O_NONBLOCK);
    }
}
