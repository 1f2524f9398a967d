#include "lib/report/owned.h"

#include "support/fd_census.h"

#include <gtest/gtest.h>

#include <fcntl.h>

TEST(ErrnoKeeper, GivesBackTheErrnoOfItsBeginning)
{
    errno = EXDEV;
    {
        ErrnoKeeper const keeper;
        errno = ENOENT;
    }
    EXPECT_EQ(errno, EXDEV);
}

TEST(OpenDescriptor, ClosesWhatItOwns)
{
    auto const before = openDescriptors();
    {
        OpenDescriptor const descriptor(open("/", O_RDONLY));
        EXPECT_EQ(openDescriptors().count(descriptor.get()), 1U);
        EXPECT_NE(openDescriptors(), before);
    }
    EXPECT_EQ(openDescriptors(), before);
}

TEST(OpenDescriptor, KeepsErrnoWhenItsDescriptorCannotBeClosed)
{
    errno = EXDEV;
    {
        OpenDescriptor const descriptor(1000000000);
    }
    EXPECT_EQ(errno, EXDEV);
}

TEST(OpenDescriptor, ClosesByNameAndGivesTheResult)
{
    auto const before = openDescriptors();
    OpenDescriptor good(open("/", O_RDONLY));
    EXPECT_EQ(good.close_now(), 0);
    EXPECT_EQ(openDescriptors(), before);
    EXPECT_EQ(good.close_now(), 0);

    OpenDescriptor bad(1000000000);
    EXPECT_EQ(bad.close_now(), -1);
    EXPECT_EQ(errno, EBADF);
}

TEST(OpenDescriptor, LeavesOpenWhatItHasGivenUp)
{
    int released = -1;
    {
        OpenDescriptor descriptor(open("/", O_RDONLY));
        released = descriptor.release();
    }
    EXPECT_EQ(openDescriptors().count(released), 1U);
    EXPECT_EQ(close(released), 0);
}

TEST(OpenFile, KeepsErrnoWhenTheFileCannotBeWritten)
{
    {
        OpenFile const file(fopen("/dev/full", "w"));
        ASSERT_NE(file, nullptr);
        EXPECT_NE(fputs("text", file.get()), EOF);
        errno = EXDEV;
    }
    EXPECT_EQ(errno, EXDEV);
}
