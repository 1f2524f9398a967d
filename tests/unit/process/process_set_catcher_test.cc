#include "process/process_set_catcher.h"

#include "process/sig_blocker.h"
#include "support/call_faults.h"
#include "support/child_run.h"
#include "support/launch_test.h"
#include "util/errors.h"

#include <gtest/gtest.h>

#include <functional>
#include <stdexcept>

#include <poll.h>

using namespace orvek::process;
using orvek::SigBlocker;
using orvek::SystemError;

namespace {

class ProcessSetCatcherTest : public LaunchTest
{
protected:
    // Starts a child and enters it into the table, as a launch does.
    static pid_t startEntered(ProcessSetCatcher& catcher, std::function<void()> const& code)
    {
        SigBlocker blocker;
        blocker.block(SIGCHLD);
        pid_t const pid = startUnknown(code);
        catcher.processes[pid] = {0, -1};
        return pid;
    }

    static pid_t startUnknown(std::function<void()> const& code)
    {
        pid_t const pid = fork();
        if (pid == 0) {
            alarm(300);
            code();
            _exit(0);
        }
        if (pid < 0)
            throw std::runtime_error("no child for the test");
        return pid;
    }

    // A number below 1 would name all processes of the machine or of the group. A test without its
    // child must not send anything.
    static void sendTo(pid_t child, int signal)
    {
        ASSERT_GT(child, 0);
        kill(child, signal);
    }

    static bool wokenWithin(ProcessSetCatcher const& catcher, int milliseconds)
    {
        pollfd entry = {catcher.controlPipe.readEnd.fd, POLLIN, 0};
        int result = -1;
        do
            result = poll(&entry, 1, milliseconds);
        while (result == -1 && errno == EINTR);
        return result == 1;
    }

    // Waits until the child is a zombie or in the given state, without reaping it.
    static void awaitState(pid_t pid, int options)
    {
        siginfo_t info;
        while (waitid(P_PID, id_t(pid), &info, options | WNOWAIT) == -1 && errno == EINTR) {
        }
    }
};

} // namespace

TEST_F(ProcessSetCatcherTest, NotesHowAChildEndedAndWakesTheLoop)
{
    ProcessSetCatcher catcher;
    catcher.install();
    pid_t const exits = startEntered(catcher, [] { _exit(5); });
    ASSERT_TRUE(wokenWithin(catcher, 300000));
    EXPECT_EQ(catcher.processes.at(exits), ProcessStatus(1, 5 << 8));
    EXPECT_EQ(catcher.clear_control(), 1U);
    pid_t const dies = startEntered(catcher, [] { raise(SIGKILL); });
    ASSERT_TRUE(wokenWithin(catcher, 300000));
    EXPECT_EQ(catcher.processes.at(dies), ProcessStatus(1, SIGKILL));
    EXPECT_EQ(catcher.finished, 2U);
    EXPECT_EQ(catcher.changed, 2U);
    catcher.remove(false);
}

TEST_F(ProcessSetCatcherTest, NotesSeveralEndsInOneSignal)
{
    ProcessSetCatcher catcher;
    catcher.install();
    {
        SigBlocker blocker;
        blocker.block(SIGCHLD);
        for (int i = 0; i < 5; ++i)
            awaitState(startEntered(catcher, [] {}), WEXITED);
        EXPECT_EQ(catcher.finished, 0U);
    }
    EXPECT_EQ(catcher.finished, 5U);
    EXPECT_EQ(catcher.clear_control(), 5U);
    EXPECT_EQ(catcher.clear_control(), 0U);
}

TEST_F(ProcessSetCatcherTest, ReapsAndForgetsAChildItDoesNotKnow)
{
    ProcessSetCatcher catcher;
    catcher.install();
    pid_t const unknown = startUnknown([] {});
    while (waitpid(unknown, nullptr, WNOHANG) == 0)
        usleep(1000);
    EXPECT_TRUE(catcher.processes.empty());
    EXPECT_EQ(catcher.changed, 0U);
    EXPECT_FALSE(wokenWithin(catcher, 0));
}

TEST_F(ProcessSetCatcherTest, DoesNotHearOfAStoppedChild)
{
    ProcessSetCatcher catcher;
    catcher.install();
    pid_t const child = startEntered(catcher, [] { raise(SIGSTOP); });
    awaitState(child, WSTOPPED);
    EXPECT_FALSE(wokenWithin(catcher, 100));
    EXPECT_EQ(catcher.changed, 0U);
    sendTo(child, SIGCONT);
    EXPECT_TRUE(wokenWithin(catcher, 300000));
    EXPECT_EQ(catcher.finished, 1U);
}

TEST_F(ProcessSetCatcherTest, KeepsErrnoInTheHandlerAndWhenClearing)
{
    ProcessSetCatcher catcher;
    catcher.install();
    errno = ENOSPC;
    ProcessSetCatcher::childHandler(SIGCHLD, nullptr, nullptr);
    EXPECT_EQ(errno, ENOSPC);
    catcher.clear_control();
    EXPECT_EQ(errno, ENOSPC);
}

TEST_F(ProcessSetCatcherTest, LeavesAllChildrenAloneWhenNoneIsInstalled)
{
    pid_t const child = startUnknown([] {});
    awaitState(child, WEXITED);
    ProcessSetCatcher::childHandler(SIGCHLD, nullptr, nullptr);
    EXPECT_EQ(waitpid(child, nullptr, 0), child);
}

TEST_F(ProcessSetCatcherTest, HasASelfPipeThatNeverBlocks)
{
    ProcessSetCatcher catcher;
    catcher.install();
    EXPECT_TRUE(fcntl(catcher.controlPipe.readEnd.fd, F_GETFL) & O_NONBLOCK);
    EXPECT_TRUE(fcntl(catcher.controlPipe.writeEnd.fd, F_GETFL) & O_NONBLOCK);
}

TEST_F(ProcessSetCatcherTest, TakesTheActionAndTheCurrentMask)
{
    ProcessSetCatcher catcher;
    {
        SigBlocker blocker;
        blocker.block(SIGUSR1);
        catcher.install();
    }
    struct sigaction action = {};
    sigaction(SIGCHLD, nullptr, &action);
    EXPECT_EQ(action.sa_sigaction, ProcessSetCatcher::childHandler);
    EXPECT_TRUE(action.sa_flags & SA_SIGINFO);
    EXPECT_TRUE(action.sa_flags & SA_NOCLDSTOP);
    EXPECT_FALSE(action.sa_flags & SA_RESTART);
    EXPECT_EQ(sigismember(&action.sa_mask, SIGUSR1), 1);
    EXPECT_EQ(sigismember(&action.sa_mask, SIGUSR2), 0);
}

TEST_F(ProcessSetCatcherTest, RefusesToBeTheSecondAndLeavesTheFirstInstalled)
{
    ProcessSetCatcher first;
    first.install();
    {
        ProcessSetCatcher second;
        EXPECT_EQ(textOf<std::logic_error>([&] { second.install(); }),
                  "ProcessSetCatcher instance has been installed already");
    }
    EXPECT_EQ(__global_handler, &first);
    startEntered(first, [] {});
    EXPECT_TRUE(wokenWithin(first, 300000));
}

TEST_F(ProcessSetCatcherTest, PutsTheOldActionBack)
{
    struct sigaction ignore = {};
    ignore.sa_handler = SIG_IGN;
    sigaction(SIGCHLD, &ignore, nullptr);
    ProcessSetCatcher catcher;
    catcher.install();
    catcher.remove(false);
    struct sigaction action = {};
    sigaction(SIGCHLD, nullptr, &action);
    EXPECT_EQ(action.sa_handler, SIG_IGN);
    EXPECT_EQ(__global_handler, nullptr);
    signal(SIGCHLD, SIG_DFL);
}

TEST_F(ProcessSetCatcherTest, CanBeInstalledAgainWithAnEmptyTable)
{
    ProcessSetCatcher catcher;
    catcher.install();
    startEntered(catcher, [] {});
    ASSERT_TRUE(wokenWithin(catcher, 300000));
    catcher.remove(false);
    EXPECT_TRUE(catcher.processes.empty());
    EXPECT_EQ(catcher.finished, 0U);
    EXPECT_EQ(catcher.changed, 0U);
    catcher.install();
    catcher.remove(false);
}

TEST_F(ProcessSetCatcherTest, IsNotRemovedWithoutForceWhileChildrenAreRunning)
{
    ProcessSetCatcher catcher;
    catcher.install();
    pid_t const child = startEntered(catcher, [] { pause(); });
    EXPECT_EQ(textOf<std::logic_error>([&] { catcher.remove(false); }),
              "there're some child processes still running");
    EXPECT_EQ(__global_handler, &catcher);
    EXPECT_EQ(catcher.processes.size(), 1U);
    EXPECT_EQ(openDescriptors(), descriptors) << "the self-pipe is closed first";
    catcher.remove(true);
    EXPECT_EQ(__global_handler, nullptr);
    sendTo(child, SIGKILL);
    EXPECT_EQ(waitpid(child, nullptr, 0), child);
}

TEST_F(ProcessSetCatcherTest, RaisesFromItsDestructorWhenChildrenAreRunning)
{
    pid_t child = -1;
    EXPECT_EQ(textOf<std::logic_error>([&] {
                  ProcessSetCatcher catcher;
                  catcher.install();
                  child = startEntered(catcher, [] { pause(); });
              }),
              "there're some child processes still running");
    EXPECT_EQ(__global_handler, nullptr);
    sendTo(child, SIGKILL);
    EXPECT_EQ(waitpid(child, nullptr, 0), child);
}

TEST_F(ProcessSetCatcherTest, IsRemovedByForceWhileAnExceptionIsInFlight)
{
    pid_t child = -1;
    EXPECT_EQ(textOf<std::runtime_error>([&] {
                  ProcessSetCatcher catcher;
                  catcher.install();
                  child = startEntered(catcher, [] { pause(); });
                  throw std::runtime_error("in flight");
              }),
              "in flight");
    EXPECT_EQ(__global_handler, nullptr);
    sendTo(child, SIGKILL);
    EXPECT_EQ(waitpid(child, nullptr, 0), child);
}

TEST_F(ProcessSetCatcherTest, RaisesNothingDuringAnExceptionAndKeepsErrno)
{
    int after = 0;
    EXPECT_EQ(textOf<std::runtime_error>([&] {
                  struct Observer
                  {
                      int& seen;
                      ~Observer() { seen = errno; }
                  } const observer{after};
                  ProcessSetCatcher catcher;
                  catcher.install();
                  close(catcher.controlPipe.writeEnd.fd);
                  errno = ENOSPC;
                  throw std::runtime_error("in flight");
              }),
              "in flight");
    EXPECT_EQ(after, ENOSPC);
    EXPECT_EQ(__global_handler, nullptr);
}

TEST_F(ProcessSetCatcherTest, RaisesAFailedCloseOfItsSelfPipe)
{
    EXPECT_EQ(textOf<SystemError>([&] {
                  ProcessSetCatcher catcher;
                  catcher.install();
                  close(catcher.controlPipe.writeEnd.fd);
              }),
              "close: Bad file descriptor");
    EXPECT_EQ(__global_handler, nullptr);
}

TEST_F(ProcessSetCatcherTest, NamesTheStepOfItsInstallingThatFailed)
{
    ProcessSetCatcher catcher;
    CallFailure::set("sigprocmask", EFAULT);
    EXPECT_EQ(textOf<SystemError>([&] { catcher.install(); }), "get sigprocmask: Bad address");
    CallFailure::set("sigaction", EINVAL);
    EXPECT_EQ(textOf<SystemError>([&] { catcher.install(); }), "sigaction: Invalid argument");
    for (int call = 1; call <= 4; ++call) {
        CallFailure::set("fcntl", EINVAL, call);
        EXPECT_EQ(textOf<SystemError>([&] { catcher.install(); }),
                  "control pipe fcntl: Invalid argument");
        EXPECT_TRUE(hasDefaultAction(SIGCHLD));
        EXPECT_EQ(openDescriptors(), descriptors);
    }
    EXPECT_EQ(__global_handler, nullptr);
}

TEST_F(ProcessSetCatcherTest, RaisesAnActionThatCannotBePutBack)
{
    ProcessSetCatcher catcher;
    catcher.install();
    CallFailure::set("sigaction", EINVAL);
    EXPECT_EQ(textOf<SystemError>([&] { catcher.remove(false); }),
              "restore sigaction: Invalid argument");
    EXPECT_EQ(__global_handler, &catcher);
    catcher.remove(false);
}

TEST_F(ProcessSetCatcherTest, RepeatsWhatASignalHasInterrupted)
{
    ProcessSetCatcher catcher;
    CallFailure::set("sigaction", EINTR);
    catcher.install();
    CallFailure::set("write", EINTR);
    startEntered(catcher, [] {});
    ASSERT_TRUE(wokenWithin(catcher, 300000));
    CallFailure::set("read", EINTR);
    EXPECT_EQ(catcher.clear_control(), 1U);
    CallFailure::set("sigaction", EINTR);
    catcher.remove(false);
}

TEST_F(ProcessSetCatcherTest, LeavesNothingInstalledWhenItHasNoSelfPipe)
{
    DescriptorShortage const shortage(1);
    ProcessSetCatcher catcher;
    EXPECT_EQ(textOf<SystemError>([&] { catcher.install(); }),
              "process set catcher control pipe: Too many open files");
    EXPECT_EQ(__global_handler, nullptr);
    EXPECT_TRUE(hasDefaultAction(SIGCHLD));
}
