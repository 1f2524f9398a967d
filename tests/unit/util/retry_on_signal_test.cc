#include "util/retry_on_signal.h"

#include <gtest/gtest.h>

#include <cerrno>

#include <sys/types.h>

using orvek::retryOnSignal;

TEST(RetryOnSignal, RepeatsACallUntilNoSignalInterruptsIt)
{
    int calls = 0;
    ssize_t const result = retryOnSignal([&]() -> ssize_t {
        errno = EINTR;
        return ++calls < 4 ? -1 : 17;
    });
    EXPECT_EQ(result, 17);
    EXPECT_EQ(calls, 4);
}

TEST(RetryOnSignal, GivesBackAnyOtherFailureWithItsErrno)
{
    int calls = 0;
    errno = EINTR;
    EXPECT_EQ(retryOnSignal([&] {
                  ++calls;
                  errno = EACCES;
                  return -1;
              }),
              -1);
    EXPECT_EQ(errno, EACCES);
    EXPECT_EQ(calls, 1);
}

TEST(RetryOnSignal, LooksAtErrnoOnlyAfterAFailure)
{
    errno = EINTR;
    EXPECT_EQ(retryOnSignal([] { return 0; }), 0);
}
