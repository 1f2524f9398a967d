#include "lib/report/failure.h"

#include "support/child_run.h"
#include "support/report.h"

#include <gtest/gtest.h>

TEST(Failure, ReportsAndGivesTheResult)
{
    auto const run = inChild([] {
        errno = ENOENT;
        return failure(7, "user %s not found", "x") == 7 && errno == ENOENT ? 0 : 1;
    });
    EXPECT_EQ(run.status, 0);
    EXPECT_EQ(run.err, withErrno("user x not found", ENOENT));
    EXPECT_EQ(run.out, run.err);
}

TEST(Failure, GivesAResultOfAnyType)
{
    auto const run = inChild([] {
        char const* const none = failure(nullptr, "none");
        return none || failure(false, "no") ? 1 : 0;
    });
    EXPECT_EQ(run.status, 0);
    EXPECT_EQ(run.err, "none\nno\n");
}

TEST(Fatal, ReportsAndEndsTheProcess)
{
    auto const run = inChild([]() -> int {
        errno = ENOENT;
        fatal("user %s not found", "x");
    });
    EXPECT_EQ(run.status, 1);
    EXPECT_EQ(run.err, withErrno("user x not found", ENOENT));
    EXPECT_EQ(run.out, run.err);
}
