#include "lib/report/product_log.h"

#include "support/child_run.h"

#include <gtest/gtest.h>

#include <string>
#include <vector>

#include <syslog.h>
#include <unistd.h>

namespace {

// The calls that closed and opened the system's log.
std::vector<std::string> log_calls;

} // namespace

extern "C" {

void __wrap_closelog()
{
    log_calls.emplace_back("close");
}

void __wrap_openlog(char const* ident, int option, int facility)
{
    log_calls.push_back(std::string("open ") + ident + " " + std::to_string(option) + " " +
                        std::to_string(facility));
}

} // extern "C"

TEST(ProductLog, StartsOnTheConsoleAtLevelSixForMail)
{
    EXPECT_EQ(orvek_log, &_orvek_utility_log);
    EXPECT_EQ(orvek_logv, &_orvek_utility_logv);
    EXPECT_EQ(LogLevel, 6);
    EXPECT_EQ(LogFacility, 16);
    EXPECT_EQ(LogEnabled, 1);
}

TEST(ProductLog, PrintsAReportOnBothStreamsWithoutPrefix)
{
    auto const run = printedBy([] { orvek_log(3, "Unable to open %s", "x"); });
    EXPECT_EQ(run.err, "Unable to open x\n");
    EXPECT_EQ(run.out, "Unable to open x\n");
}

TEST(ProductLog, LeavesNothingInTheBuffersOfTheStreams)
{
    auto const run = printedBy([] {
        orvek_log(3, "text");
        _exit(0);
    });
    EXPECT_EQ(run.err, "text\n");
    EXPECT_EQ(run.out, "text\n");
}

TEST(ProductLog, AddsItsNewlineBehindATextThatEndsInOne)
{
    auto const run = printedBy([] { orvek_log(3, "text\n"); });
    EXPECT_EQ(run.err, "text\n\n");
}

TEST(ProductLog, HasNoLineForErrno)
{
    auto const run = printedBy([] {
        errno = ENOENT;
        orvek_log(3, "text");
    });
    EXPECT_EQ(run.out, "text\n");
}

TEST(ProductLog, PrintsPrioritySixButNotTwelveByDefault)
{
    auto const run = printedBy([] {
        orvek_log(6, "six");
        orvek_log(7, "seven");
        orvek_log(12, "twelve");
    });
    EXPECT_EQ(run.err, "six\n");
    EXPECT_EQ(run.out, "six\n");
}

TEST(ProductLog, IsNotSilencedByLogEnabled)
{
    auto const run = printedBy([] {
        LogEnabled = 0;
        orvek_log(3, "still here");
    });
    EXPECT_EQ(run.err, "still here\n");
}

TEST(ProductLog, NeverTakesAReportsTextAsAFormat)
{
    auto const run = printedBy([] { orvek_log(3, "%s", "100%s %n"); });
    EXPECT_EQ(run.err, "100%s %n\n");
}

TEST(ProductLogInit, StoresLevelAndFacility)
{
    auto const run = inChild([] {
        orvek_log_init("console", 4, 24, 0, "ident");
        return LogLevel == 4 && LogFacility == 24 && LogEnabled == 1 ? 0 : 1;
    });
    EXPECT_EQ(run.status, 0);
}

TEST(ProductLogInit, SwitchesLoggingOffForALevelBelowOne)
{
    for (int const level : {0, -1}) {
        auto const run = inChild([=] {
            orvek_log_init("console", level, 16, 0, "ident");
            orvek_log(1, "above level 0");
            orvek_log(0, "at level 0");
            return LogLevel == 0 && LogEnabled == 0 ? 0 : 1;
        });
        EXPECT_EQ(run.status, 0) << level;
        EXPECT_EQ(run.err, "at level 0\n") << level;
    }
}

TEST(ProductLogInit, StaysEnabledForConsoleInAnyCase)
{
    auto const run = inChild([] {
        orvek_log_init("CONSOLE and more", 6, 16, 0, "ident");
        return LogEnabled;
    });
    EXPECT_EQ(run.status, 1);
}

TEST(ProductLogInit, ClearsTheSwitchButInstallsTheConsoleForOtherPlaces)
{
    auto const run = inChild([] {
        orvek_log_init("consol", 6, 16, 0, "ident");
        orvek_log(3, "printed");
        return LogEnabled;
    });
    EXPECT_EQ(run.status, 0);
    EXPECT_EQ(run.out, "printed\n");
}

TEST(ProductLogInit, ReopensTheSystemLogWithTheProcessId)
{
    auto const run = inChild([] {
        orvek_log_init(nullptr, 6, LOG_DAEMON, LOG_NDELAY, "ident");
        std::vector<std::string> const expected = {"close", "open ident 9 24"};
        return log_calls == expected && LogFacility == LOG_DAEMON && LogEnabled == 1 ? 0 : 1;
    });
    EXPECT_EQ(run.status, 0);
}

TEST(ProductLogInit, LeavesTheSystemLogAloneForTheConsole)
{
    auto const run = inChild([] {
        orvek_log_init("console", 6, LOG_MAIL, 0, "ident");
        return log_calls.empty() ? 0 : 1;
    });
    EXPECT_EQ(run.status, 0);
}

TEST(ProductLogInit, TakesSyslogForNoPlaceAndTheConsoleBackAgain)
{
    auto const run = inChild([] {
        orvek_log_init(nullptr, 6, 16, 0, "ident");
        if (orvek_log != syslog || orvek_logv != vsyslog)
            return 1;
        orvek_log(3, "to the system log");
        orvek_log_init("console", 6, 16, 0, "ident");
        orvek_log(3, "to the console");
        return 0;
    });
    EXPECT_EQ(run.status, 0);
    EXPECT_EQ(run.err, "to the console\n");
    EXPECT_EQ(run.out, "to the console\n");
}

TEST(ProductLog, ShowsControlBytesOfItsArguments)
{
    auto const run = printedBy([] { orvek_log(3, "no %s\nsuch", "a\nb"); });
    EXPECT_EQ(run.err, "no a\\nb\nsuch\n");
    EXPECT_EQ(run.out, run.err);
}

TEST(ProductLog, PrintsALongReportWhole)
{
    std::string const text(10000, 'a');
    auto const run = printedBy([&] { orvek_log(3, "%s", text.c_str()); });
    EXPECT_EQ(run.err, text + "\n");
}
