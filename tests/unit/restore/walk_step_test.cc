#include "restore/walk_step.h"

#include "support/captured_streams.h"

#include <gtest/gtest.h>

#include <cstdlib>
#include <functional>
#include <stdexcept>

using namespace orvek::mail::restore;

namespace {

std::string toldBy(char const* debug, std::function<void()> const& code)
{
    if (debug)
        setenv("ORVEK_INSTALLER_DEBUG", debug, 1);
    else
        unsetenv("ORVEK_INSTALLER_DEBUG");
    CapturedStreams const streams;
    code();
    unsetenv("ORVEK_INSTALLER_DEBUG");
    EXPECT_EQ(streams.out(), "");
    EXPECT_EQ(streams.err(), "");
    return streams.log();
}

void boom()
{
    throw std::runtime_error("boom");
}

} // namespace

TEST(WalkStep, IsOneLineOnTheLogStream)
{
    EXPECT_EQ(toldBy("1", [] { walkStep(" restoring ", "d.test", [] {}); }),
              " restoring d.test... done\n");
}

TEST(WalkStep, TellsItsNameBeforeItIsDone)
{
    std::string told;
    CapturedStreams const streams;
    setenv("ORVEK_INSTALLER_DEBUG", "1", 1);
    walkStep(" restoring", "", [&] { told = streams.log(); });
    unsetenv("ORVEK_INSTALLER_DEBUG");
    EXPECT_EQ(told, " restoring...");
}

TEST(WalkStep, EndsWithWhatWasRaisedInsteadOfDone)
{
    EXPECT_EQ(toldBy("1", [] { walkStep(" restoring", "", boom); }),
              " restoring... failed (boom), ignored\n");
    EXPECT_EQ(toldBy("1", [] { walkStep(" restoring", "", [] { throw 7; }); }),
              " restoring... failed (unknown error), ignored\n");
}

TEST(WalkStep, ShowsTheControlBytesOfNamesAndTexts)
{
    EXPECT_EQ(toldBy("1",
                     [] {
                         tellProgress("a\nb");
                         walkStep(" restoring ", "c\nd", [] { throw std::runtime_error("e\nf"); });
                     }),
              "a\\nb\n restoring c\\nd... failed (e\\nf), ignored\n");
}

TEST(WalkStep, TellsOfEachPieceThatFailedAndRunsThemAll)
{
    int run = 0;
    EXPECT_EQ(toldBy("1",
                     [&] {
                         WalkStep step(" restoring");
                         for (int i = 0; i < 4; ++i)
                             step.attempt([&] {
                                 if (++run % 2)
                                     boom();
                             });
                     }),
              " restoring... failed (boom), ignored failed (boom), ignored\n");
    EXPECT_EQ(run, 4);
}

TEST(WalkStep, IsSilentButRunsUnlessTheEnvironmentAsksForIt)
{
    int run = 0;
    auto const steps = [&] {
        tellProgress("a line");
        walkStep(" restoring", "", [&] { ++run; });
        walkStep(" restoring", "", boom);
    };
    EXPECT_EQ(toldBy(nullptr, steps), "");
    EXPECT_EQ(toldBy("0", steps), "");
    EXPECT_EQ(run, 2);
}

TEST(WalkStep, IsToldForEveryValueOfTheEnvironmentButZero)
{
    for (char const* const debug : {"1", "", "00", "no", "0 "})
        EXPECT_EQ(toldBy(debug, [] { tellProgress("a line"); }), "a line\n") << debug;
}
