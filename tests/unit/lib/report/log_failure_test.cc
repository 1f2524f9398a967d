#include "lib/report/log_failure.h"

#include "support/log_recorder.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <cerrno>

using ::testing::ElementsAre;

TEST(LogFailure, ReportsAtPriorityErrorAndGivesMinusOne)
{
    LogRecorder const recorder;
    EXPECT_EQ(log_failure("Unable to open dir %s: %s", "x", "100%s"), -1);
    EXPECT_THAT(LogRecorder::reports(), ElementsAre(Report(3, "Unable to open dir x: 100%s")));
}

TEST(LogFailure, ReportsAtPriorityErrorAndGivesNull)
{
    LogRecorder const recorder;
    EXPECT_EQ(log_null("errors: %i", 7), nullptr);
    EXPECT_THAT(LogRecorder::reports(), ElementsAre(Report(3, "errors: 7")));
}

TEST(LogFailure, KeepsErrnoWhateverTheLoggerDoesToIt)
{
    auto* const logger = orvek_logv;
    orvek_logv = [](int, char const*, va_list) { errno = EBADF; };
    errno = EXDEV;
    EXPECT_EQ(log_failure("x"), -1);
    EXPECT_EQ(errno, EXDEV);
    EXPECT_EQ(log_null("x"), nullptr);
    EXPECT_EQ(errno, EXDEV);
    orvek_logv = logger;
}
