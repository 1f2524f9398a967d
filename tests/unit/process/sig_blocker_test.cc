#include "process/sig_blocker.h"

#include "support/call_faults.h"
#include "support/launch_test.h"
#include "util/errors.h"

#include <gtest/gtest.h>

#include <stdexcept>

using orvek::SigBlocker;
using orvek::SystemError;

namespace {

class SigBlockerTest : public LaunchTest
{
protected:
    static void unblockChildSignal()
    {
        sigset_t mask;
        sigemptyset(&mask);
        sigaddset(&mask, SIGCHLD);
        sigprocmask(SIG_UNBLOCK, &mask, nullptr);
    }

    static bool isBlocked(int signal) { return blockedSignals().count(signal) == 1; }
};

} // namespace

TEST_F(SigBlockerTest, BlocksASignalForTheLengthOfItsScope)
{
    {
        SigBlocker blocker;
        EXPECT_FALSE(isBlocked(SIGCHLD));
        blocker.block(SIGCHLD);
        EXPECT_TRUE(isBlocked(SIGCHLD));
    }
    EXPECT_FALSE(isBlocked(SIGCHLD));
}

TEST_F(SigBlockerTest, PutsBackTheMaskBeforeTheFirstSignal)
{
    {
        SigBlocker blocker;
        blocker.block(SIGCHLD);
        blocker.block(SIGUSR1);
        EXPECT_TRUE(isBlocked(SIGCHLD));
        EXPECT_TRUE(isBlocked(SIGUSR1));
    }
    EXPECT_FALSE(isBlocked(SIGCHLD));
    EXPECT_FALSE(isBlocked(SIGUSR1));
}

TEST_F(SigBlockerTest, LeavesASignalBlockedThatWasBlockedBefore)
{
    SigBlocker outer;
    outer.block(SIGUSR1);
    {
        SigBlocker inner;
        inner.block(SIGUSR1);
        inner.block(SIGCHLD);
    }
    EXPECT_TRUE(isBlocked(SIGUSR1));
    EXPECT_FALSE(isBlocked(SIGCHLD));
}

TEST_F(SigBlockerTest, RaisesForABadSignalNumberAndBlocksNothing)
{
    SigBlocker blocker;
    EXPECT_EQ(textOf<SystemError>([&] { blocker.block(4711); }), "sigaddset: Invalid argument");
    EXPECT_EQ(blockedSignals(), blocked);
}

TEST_F(SigBlockerTest, RestoresTheMaskWhileAnExceptionIsInFlight)
{
    EXPECT_EQ(textOf<std::runtime_error>([] {
                  SigBlocker blocker;
                  blocker.block(SIGCHLD);
                  throw std::runtime_error("in flight");
              }),
              "in flight");
    EXPECT_FALSE(isBlocked(SIGCHLD));
}

TEST_F(SigBlockerTest, NamesTheStepThatFailed)
{
    SigBlocker blocker;
    CallFailure::set("sigprocmask", EFAULT);
    EXPECT_EQ(textOf<SystemError>([&] { blocker.block(SIGCHLD); }), "get sigprocmask: Bad address");
    CallFailure::set("sigprocmask", EFAULT, 2);
    EXPECT_EQ(textOf<SystemError>([&] { blocker.block(SIGCHLD); }), "set sigprocmask: Bad address");
    EXPECT_EQ(blockedSignals(), blocked);
}

TEST_F(SigBlockerTest, RepeatsWhatASignalHasInterrupted)
{
    for (int call = 1; call <= 3; ++call) {
        CallFailure const failure("sigprocmask", EINTR, call);
        SigBlocker blocker;
        blocker.block(SIGCHLD);
    }
}

TEST_F(SigBlockerTest, RaisesFromItsDestructorWhenItCannotRestoreTheMask)
{
    EXPECT_EQ(textOf<SystemError>([] {
                  SigBlocker blocker;
                  blocker.block(SIGCHLD);
                  CallFailure::set("sigprocmask", EFAULT);
              }),
              "restore sigprocmask: Bad address");
    unblockChildSignal();
}

TEST_F(SigBlockerTest, IgnoresThatAndKeepsErrnoDuringAnException)
{
    int after = 0;
    EXPECT_EQ(textOf<std::runtime_error>([&] {
                  struct Observer
                  {
                      int& seen;
                      ~Observer() { seen = errno; }
                  } const observer{after};
                  SigBlocker blocker;
                  blocker.block(SIGCHLD);
                  CallFailure::set("sigprocmask", EFAULT);
                  errno = ENOSPC;
                  throw std::runtime_error("in flight");
              }),
              "in flight");
    EXPECT_EQ(after, ENOSPC);
    unblockChildSignal();
}

TEST_F(SigBlockerTest, TellsTheCurrentMask)
{
    SigBlocker blocker;
    blocker.block(SIGUSR2);
    sigset_t const mask = orvek::currentSignalMask();
    EXPECT_EQ(sigismember(&mask, SIGUSR2), 1);
    EXPECT_EQ(sigismember(&mask, SIGCHLD), 0);
}
