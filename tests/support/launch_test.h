// launch_test - base of every test that starts programs
//
// Such a test has a time limit. It must leave the descriptors, the signal mask and the signal
// actions as it found them, and no child.

#ifndef MAILVEK_TESTS_SUPPORT_LAUNCH_TEST_H
#define MAILVEK_TESTS_SUPPORT_LAUNCH_TEST_H

#include "support/fd_census.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <cerrno>
#include <csignal>
#include <cstdlib>
#include <ctime>
#include <exception>
#include <functional>
#include <set>
#include <string>
#include <typeinfo>

#include <fcntl.h>
#include <sys/resource.h>
#include <sys/wait.h>
#include <unistd.h>

class LaunchTest : public ::testing::Test
{
protected:
    void SetUp() override
    {
        alarm(300);
        // A directory in PATH that this user may not enter would change exec's error.
        setenv("PATH", "/usr/bin:/bin", 1);
        descriptors = openDescriptors();
        blocked = blockedSignals();
    }

    void TearDown() override
    {
        EXPECT_EQ(openDescriptors(), descriptors);
        EXPECT_EQ(blockedSignals(), blocked);
        EXPECT_TRUE(hasDefaultAction(SIGCHLD));
        EXPECT_TRUE(hasDefaultAction(SIGPIPE));
        EXPECT_EQ(waitpid(-1, nullptr, WNOHANG), -1) << "a child is left";
        EXPECT_EQ(errno, ECHILD);
        alarm(0);
    }

    static std::set<int> blockedSignals()
    {
        std::set<int> result;
        sigset_t mask;
        sigprocmask(SIG_BLOCK, nullptr, &mask);
        for (int i = 1; i < NSIG; ++i)
            if (sigismember(&mask, i) == 1)
                result.insert(i);
        return result;
    }

    static bool hasDefaultAction(int signal)
    {
        struct sigaction action = {};
        sigaction(signal, nullptr, &action);
        return action.sa_handler == SIG_DFL;
    }

    // For stages that a failed run has left running.
    static void waitForAllChildren()
    {
        while (waitpid(-1, nullptr, 0) > 0 || errno == EINTR) {
        }
    }

    std::set<int> descriptors;
    std::set<int> blocked;
};

// Everything up to the end of file.
inline std::string readAll(int fd)
{
    std::string text;
    char block[4096];
    for (;;) {
        ssize_t const got = read(fd, block, sizeof block);
        if (got == 0 || (got == -1 && errno != EINTR))
            return text;
        if (got > 0)
            text.append(block, size_t(got));
    }
}

// The text of the exception that code raises; its type must be E itself.
template<class E>
std::string textOf(std::function<void()> const& code)
{
    try {
        code();
    } catch (std::exception const& e) {
        EXPECT_STREQ(typeid(e).name(), typeid(E).name());
        return e.what();
    }
    return "no exception";
}

// Interrupts every blocking call of the scope, twice a millisecond.
class SignalStorm
{
public:
    SignalStorm()
    {
        struct sigaction action = {};
        action.sa_handler = [](int) { interruptions = interruptions + 1; };
        sigaction(SIGVTALRM, &action, &old);
        sigevent event = {};
        event.sigev_notify = SIGEV_SIGNAL;
        event.sigev_signo = SIGVTALRM;
        timer_create(CLOCK_MONOTONIC, &event, &timer);
        itimerspec const often = {{0, 500'000}, {0, 500'000}};
        timer_settime(timer, 0, &often, nullptr);
    }
    ~SignalStorm()
    {
        timer_delete(timer);
        sigaction(SIGVTALRM, &old, nullptr);
    }
    SignalStorm(SignalStorm const&) = delete;
    SignalStorm& operator=(SignalStorm const&) = delete;

    static inline volatile sig_atomic_t interruptions = 0;

private:
    timer_t timer = {};
    struct sigaction old = {};
};

// Occupies all descriptors below the given number while it lives.
class DescriptorCrowd
{
public:
    explicit DescriptorCrowd(int below)
    {
        getrlimit(RLIMIT_NOFILE, &old);
        rlimit const wanted = {std::max<rlim_t>(old.rlim_cur, rlim_t(below) + 64), old.rlim_max};
        setrlimit(RLIMIT_NOFILE, &wanted);
        for (int fd = open("/dev/null", O_RDONLY); fd >= 0; fd = dup(fd)) {
            taken.insert(fd);
            if (fd >= below)
                break;
        }
    }
    ~DescriptorCrowd()
    {
        for (int const fd : taken)
            close(fd);
        setrlimit(RLIMIT_NOFILE, &old);
    }
    DescriptorCrowd(DescriptorCrowd const&) = delete;
    DescriptorCrowd& operator=(DescriptorCrowd const&) = delete;

    std::set<int> taken;

private:
    rlimit old = {};
};

// Lowers the limit of descriptors to the open ones and a few more.
class DescriptorShortage
{
public:
    explicit DescriptorShortage(int left)
    {
        getrlimit(RLIMIT_NOFILE, &old);
        int const lowest = open("/dev/null", O_RDONLY);
        close(lowest);
        rlimit const limit = {rlim_t(lowest + left), old.rlim_max};
        setrlimit(RLIMIT_NOFILE, &limit);
    }
    ~DescriptorShortage() { setrlimit(RLIMIT_NOFILE, &old); }
    DescriptorShortage(DescriptorShortage const&) = delete;
    DescriptorShortage& operator=(DescriptorShortage const&) = delete;

private:
    rlimit old = {};
};

#endif
