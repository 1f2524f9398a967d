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
