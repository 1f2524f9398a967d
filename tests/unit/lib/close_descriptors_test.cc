#include "lib/close_descriptors.h"

#include "support/child_run.h"
#include "support/fd_census.h"
#include "support/syscall_faults.h"

#include <gtest/gtest.h>

#include <sys/resource.h>
#include <sys/times.h>
#include <unistd.h>

namespace {

std::set<int> const standard_streams = {0, 1, 2};

void openSome()
{
    for (int const descriptor : {3, 4, 7, 50, 200})
        dup2(STDOUT_FILENO, descriptor);
}

int closesAllButTheStandardStreams()
{
    openSome();
    close_descriptors();
    return openDescriptors() == standard_streams ? 0 : 1;
}

void setDescriptorLimit(rlim_t limit)
{
    rlimit now = {};
    getrlimit(RLIMIT_NOFILE, &now);
    now.rlim_cur = limit == RLIM_INFINITY ? now.rlim_max : limit;
    setrlimit(RLIMIT_NOFILE, &now);
}

} // namespace

TEST(CloseDescriptors, LeavesTheStandardStreamsAlone)
{
    EXPECT_EQ(inChild(closesAllButTheStandardStreams).status, 0);
}

TEST(CloseDescriptors, FollowsTheListOfOpenOnesWhereTheKernelRefusesTheRange)
{
    auto const run = inChild([] {
        failSystemCall(SYS_close_range, ENOSYS);
        return closesAllButTheStandardStreams();
    });
    EXPECT_EQ(run.status, 0);
}

TEST(CloseDescriptors, TakesNoTimeForALimitAsHighAsItGets)
{
    for (bool const range : {true, false}) {
        auto const run = inChild([=] {
            setDescriptorLimit(RLIM_INFINITY);
            if (!range)
                failSystemCall(SYS_close_range, ENOSYS);
            openSome();
            auto const begin = times(nullptr);
            close_descriptors();
            auto const ticks = times(nullptr) - begin;
            return ticks <= sysconf(_SC_CLK_TCK) / 20 ? 0 : 1;
        });
        EXPECT_EQ(run.status, 0) << range;
    }
}

TEST(CloseDescriptors, StopsBelowTheLimit)
{
    for (bool const range : {true, false}) {
        auto const run = inChild([=] {
            openSome();
            auto expected = standard_streams;
            for (int const descriptor : openDescriptors())
                if (descriptor >= 50)
                    expected.insert(descriptor);
            setDescriptorLimit(50);
            if (!range)
                failSystemCall(SYS_close_range, ENOSYS);
            close_descriptors();
            return openDescriptors() == expected ? 0 : 1;
        });
        EXPECT_EQ(run.status, 0) << range;
    }
}

TEST(CloseDescriptors, HasNothingToDoBelowALimitOfThree)
{
    auto const run = inChild([] {
        openSome();
        setDescriptorLimit(3);
        close_descriptors();
        setDescriptorLimit(RLIM_INFINITY);
        return openDescriptors().contains(3) ? 0 : 1;
    });
    EXPECT_EQ(run.status, 0);
}

TEST(CloseDescriptors, KeepsErrno)
{
    auto const run = inChild([] {
        failSystemCall(SYS_close_range, ENOSYS);
        errno = EPIPE;
        close_descriptors();
        return errno == EPIPE ? 0 : 1;
    });
    EXPECT_EQ(run.status, 0);
}
