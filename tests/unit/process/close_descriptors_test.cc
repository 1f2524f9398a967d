#include "process/close_descriptors.h"

#include "support/process_call_faults.h"
#include "support/child_run.h"
#include "support/launch_test.h"

#include <gtest/gtest.h>

#include <cstddef>

#include <linux/filter.h>
#include <linux/seccomp.h>
#include <sys/prctl.h>
#include <sys/syscall.h>

using orvek::process::closeAllDescriptors;

namespace {

class CloseDescriptorsTest : public LaunchTest
{
};

// As in a container whose filter knows no close_range.
bool forbidCloseRange()
{
    sock_filter steps[] = {
        BPF_STMT(BPF_LD | BPF_W | BPF_ABS, offsetof(seccomp_data, nr)),
        BPF_JUMP(BPF_JMP | BPF_JEQ | BPF_K, SYS_close_range, 0, 1),
        BPF_STMT(BPF_RET | BPF_K, SECCOMP_RET_ERRNO | EPERM),
        BPF_STMT(BPF_RET | BPF_K, SECCOMP_RET_ALLOW),
    };
    sock_fprog program = {sizeof steps / sizeof *steps, steps};
    return prctl(PR_SET_NO_NEW_PRIVS, 1, 0, 0, 0) == 0 &&
           prctl(PR_SET_SECCOMP, SECCOMP_MODE_FILTER, &program) == 0;
}

// What the process that runs the tests has inherited may lie above the limit that a test sets.
std::set<int> openBelow(int end)
{
    std::set<int> open = openDescriptors();
    open.erase(open.lower_bound(end), open.end());
    return open;
}

// Opens some descriptors, closes all but one and tells by the result what went wrong.
int closeAllButOne()
{
    for (int fd = 3; fd < 100; ++fd)
        dup2(0, fd);
    dup2(0, 700);
    errno = ENOSPC;
    closeAllDescriptors(42);
    if (errno != ENOSPC)
        return 1;
    return openDescriptors() == std::set<int>{0, 1, 2, 42} ? 0 : 2;
}

} // namespace

TEST_F(CloseDescriptorsTest, LeavesTheStreamsAndTheExceptedOne)
{
    EXPECT_EQ(inChild(closeAllButOne).status, 0);
}

TEST_F(CloseDescriptorsTest, DoesTheSameWhereTheKernelRefusesToCloseARange)
{
    auto const run = inChild([] { return forbidCloseRange() ? closeAllButOne() : 9; });
    EXPECT_EQ(run.status, 0);
}

TEST_F(CloseDescriptorsTest, CopesWithAnExceptedOneAtEitherEndOfTheRange)
{
    for (int const kept : {3, 99, -1}) {
        auto const run = inChild([kept] {
            rlimit limit;
            getrlimit(RLIMIT_NOFILE, &limit);
            limit.rlim_cur = 100;
            for (int fd = 3; fd < 100; ++fd)
                dup2(0, fd);
            setrlimit(RLIMIT_NOFILE, &limit);
            closeAllDescriptors(kept);
            std::set<int> expected{0, 1, 2};
            if (kept >= 0)
                expected.insert(kept);
            return openBelow(100) == expected ? 0 : 1;
        });
        EXPECT_EQ(run.status, 0) << kept;
    }
}

TEST_F(CloseDescriptorsTest, LeavesWhatLiesAboveTheLimit)
{
    auto const run = inChild([] {
        dup2(0, 400);
        dup2(0, 399);
        rlimit limit;
        getrlimit(RLIMIT_NOFILE, &limit);
        limit.rlim_cur = 400;
        setrlimit(RLIMIT_NOFILE, &limit);
        closeAllDescriptors(-1);
        return openBelow(401) == std::set<int>{0, 1, 2, 400} ? 0 : 1;
    });
    EXPECT_EQ(run.status, 0);
}

TEST_F(CloseDescriptorsTest, ClosesThoseBelowTwentyWhenTheLimitCannotBeRead)
{
    auto const run = inChild([] {
        dup2(0, 19);
        dup2(0, 20);
        CallFailure const failure("getrlimit", 1, EFAULT);
        closeAllDescriptors(-1);
        return openBelow(21) == std::set<int>{0, 1, 2, 20} ? 0 : 1;
    });
    EXPECT_EQ(run.status, 0);
}

TEST_F(CloseDescriptorsTest, TakesNoLongerForAHigherLimit)
{
    auto const run = inChild([] {
        rlimit limit;
        getrlimit(RLIMIT_NOFILE, &limit);
        limit.rlim_cur = limit.rlim_max;
        setrlimit(RLIMIT_NOFILE, &limit);
        timespec before;
        timespec after;
        clock_gettime(CLOCK_PROCESS_CPUTIME_ID, &before);
        for (int i = 0; i < 1000; ++i)
            closeAllDescriptors(-1);
        clock_gettime(CLOCK_PROCESS_CPUTIME_ID, &after);
        return after.tv_sec - before.tv_sec < 2 ? 0 : 1;
    });
    EXPECT_EQ(run.status, 0);
}
