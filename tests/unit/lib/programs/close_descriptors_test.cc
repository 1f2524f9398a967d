#include "lib/programs/close_descriptors.h"

#include "support/call_faults.h"
#include "support/child_run.h"
#include "support/fd_census.h"
#include "support/syscall_faults.h"

#include <gtest/gtest.h>

#include <functional>
#include <set>

#include <sys/resource.h>
#include <sys/times.h>
#include <unistd.h>

namespace {

std::set<int> const standard_streams = {0, 1, 2};

void openSome()
{
    for (int const descriptor : {3, 4, 7, 42, 50, 200})
        dup2(STDOUT_FILENO, descriptor);
}

void setDescriptorLimit(rlim_t limit)
{
    rlimit now = {};
    getrlimit(RLIMIT_NOFILE, &now);
    now.rlim_cur = limit == RLIM_INFINITY ? now.rlim_max : limit;
    setrlimit(RLIMIT_NOFILE, &now);
}

// The open descriptors that a call with this limit must leave open.
std::set<int> streamsAndThoseFrom(int limit)
{
    std::set<int> expected = openDescriptors();
    expected.erase(expected.lower_bound(3), expected.lower_bound(limit));
    return expected;
}

// Expects success from code in a child: once as it is, and once where the kernel refuses
// close_range.
void expectSuccessBothWays(std::function<bool()> const& code)
{
    for (bool const range : {true, false}) {
        auto const run = inChild([&] {
            if (!range)
                failSystemCall(SYS_close_range, ENOSYS);
            return code() ? 0 : 1;
        });
        EXPECT_EQ(run.status, 0) << (range ? "with" : "without") << " close_range";
    }
}

} // namespace

TEST(CloseDescriptors, LeavesTheStandardStreamsAlone)
{
    expectSuccessBothWays([] {
        openSome();
        close_descriptors();
        return openDescriptors() == standard_streams;
    });
}

TEST(CloseDescriptors, LeavesTheExceptedOneWhereverItIs)
{
    for (int const kept : {3, 42, 199, 200})
        expectSuccessBothWays([=] {
            openSome();
            dup2(STDOUT_FILENO, 199);
            setDescriptorLimit(201);
            std::set<int> expected = streamsAndThoseFrom(201);
            expected.insert(kept);
            close_descriptors(kept);
            return openDescriptors() == expected;
        });
}

TEST(CloseDescriptors, NeedsNoExceptionForAStandardStream)
{
    for (int const kept : {-1, 0, 2, 1000})
        expectSuccessBothWays([=] {
            openSome();
            setDescriptorLimit(201);
            std::set<int> const expected = streamsAndThoseFrom(201);
            close_descriptors(kept);
            return openDescriptors() == expected;
        });
}

TEST(CloseDescriptors, TakesNoTimeForTheHighestLimit)
{
    expectSuccessBothWays([] {
        setDescriptorLimit(RLIM_INFINITY);
        openSome();
        auto const begin = times(nullptr);
        close_descriptors(42);
        auto const ticks = times(nullptr) - begin;
        return ticks <= sysconf(_SC_CLK_TCK) / 20;
    });
}

TEST(CloseDescriptors, StopsBelowTheLimit)
{
    expectSuccessBothWays([] {
        openSome();
        dup2(STDOUT_FILENO, 49);
        std::set<int> const expected = streamsAndThoseFrom(50);
        setDescriptorLimit(50);
        close_descriptors();
        return openDescriptors() == expected;
    });
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

TEST(CloseDescriptors, ClosesThoseBelowTwentyWhenTheLimitCannotBeRead)
{
    expectSuccessBothWays([] {
        dup2(STDOUT_FILENO, 19);
        dup2(STDOUT_FILENO, 20);
        std::set<int> const expected = streamsAndThoseFrom(20);
        CallFailure const failure("getrlimit", EFAULT);
        close_descriptors();
        return openDescriptors() == expected;
    });
}

TEST(CloseDescriptors, ReadsTheLimitAgainAfterASignal)
{
    auto const run = inChild([] {
        openSome();
        CallFailure const failure("getrlimit", EINTR);
        close_descriptors();
        return openDescriptors() == standard_streams ? 0 : 1;
    });
    EXPECT_EQ(run.status, 0);
}

TEST(CloseDescriptors, KeepsErrno)
{
    expectSuccessBothWays([] {
        openSome();
        errno = EPIPE;
        close_descriptors(42);
        return errno == EPIPE;
    });
}
