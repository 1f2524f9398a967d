#include "process/pipe_pump.h"

#include "support/call_faults.h"
#include "support/pump_test.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <string>

using namespace orvek::process;
using orvek::PipeOwner;

namespace {

class PipePumpTest : public PumpTest
{
};

} // namespace

TEST_F(PipePumpTest, DrainsAStageThatSpewsOnBothStreams)
{
    pipe.append(stage("spew", "5000000"));
    EXPECT_EQ(pipe.run(), 0);
    EXPECT_EQ(out, std::string(5000000, 'o'));
    EXPECT_EQ(err, std::string(5000000, 'e'));
}

TEST_F(PipePumpTest, DrainsAStageThatSpewsWhileItIsFed)
{
    feed(1000, 5000);
    pipe.append(stage("spew", "3000000"));
    EXPECT_EQ(pipe.run(), 0);
    EXPECT_EQ(out.size(), 3000000U);
    EXPECT_EQ(err.size(), 3000000U);
}

TEST_F(PipePumpTest, PassesEverythingThroughAChain)
{
    feed(300, 10007);
    for (int i = 0; i < 4; ++i)
        pipe.append(stage("echo"));
    EXPECT_EQ(pipe.run(), 0);
    EXPECT_EQ(calls, 300);
    ASSERT_EQ(out.size(), 300U * 10007U);
    for (int i = 1; i <= 300; ++i)
        EXPECT_EQ(out[size_t(i) * 10007 - 1], char('a' + i % 26));
}

TEST_F(PipePumpTest, FeedsInPartsWhatAStageTakesSlowly)
{
    feed(2, 500000);
    pipe.append(stage("drip"));
    EXPECT_EQ(pipe.run(), 0);
    EXPECT_EQ(out, std::string(500000, 'b') + std::string(500000, 'c'));
}

TEST_F(PipePumpTest, FeedsALastChunkThatComesWithFalse)
{
    feed(1, 5);
    pipe.append(stage("echo"));
    EXPECT_EQ(pipe.run(), 0);
    EXPECT_EQ(out, "bbbbb");
    EXPECT_EQ(calls, 1);
}

TEST_F(PipePumpTest, EndsTheInputOfAnEmptySource)
{
    feed(1, 0);
    pipe.append(stage("count"));
    EXPECT_EQ(pipe.run(), 0);
    EXPECT_EQ(out, "0");
}

TEST_F(PipePumpTest, EndsTheInputAtOnceWithoutASource)
{
    pipe.stdinMode = Capture;
    pipe.append(stage("count"));
    EXPECT_EQ(pipe.run(), 0);
    EXPECT_EQ(out, "0");
}

TEST_F(PipePumpTest, DropsTheRestWhenTheFirstStageEndsWithoutReading)
{
    feed(100000, 10000);
    pipe.append(stage("exit", "6"));
    EXPECT_EQ(pipe.run(), 6 << 8);
    EXPECT_LT(calls, 100000);
}

TEST_F(PipePumpTest, DropsTheRestWhenTheFirstStageClosesItsInput)
{
    feed(100000, 10000);
    pipe.append(stage("shut", "200"));
    EXPECT_EQ(pipe.run(), 0);
    EXPECT_LT(calls, 100000);
}

TEST_F(PipePumpTest, DropsTheRestWhenAWriteGivesNothing)
{
    feed(3, 5);
    auto const source = pipe.stdinSource;
    pipe.stdinSource = [=](Chunk& chunk) {
        CallFailure::set("write", 0, 1, 0);
        return source(chunk);
    };
    pipe.append(stage("count"));
    EXPECT_EQ(pipe.run(), 0);
    EXPECT_EQ(out, "0");
    EXPECT_EQ(calls, 1);
}

TEST_F(PipePumpTest, WaitsForAStageThatNeverReadsItsInput)
{
    feed(100, 100000);
    pipe.append(stage("idle", "200"));
    EXPECT_EQ(pipe.run(), 0);
    EXPECT_LT(calls, 100);
}

TEST_F(PipePumpTest, DropsTheRestWhenTheFirstStageIsKilled)
{
    feed(100000, 10000);
    pipe.append(stage("signal", "11"));
    EXPECT_EQ(pipe.run() & 0x7f, 11);
}

TEST_F(PipePumpTest, GoesOnAfterTheFirstStageEnded)
{
    feed(100000, 10000);
    pipe.append(stage("exit", "1"));
    pipe.append(stage("count"));
    EXPECT_EQ(pipe.run(), 0);
    EXPECT_EQ(out, "0");
}

TEST_F(PipePumpTest, EndsTheFeedingWithTheFirstStageDespiteAGrandchild)
{
    feed(100000, 10000);
    pipe.append(stage("orphan", "0"));
    pipe.append(stage("count"));
    EXPECT_EQ(pipe.run(), 0);
    EXPECT_LT(calls, 100000);
    EXPECT_EQ(out, "0");
}

TEST_F(PipePumpTest, BreaksTheFirstStagesPipeWhenALaterEnds)
{
    int first = 0;
    pipe.exitHandler = [&](unsigned long index, int status) {
        if (index == 0)
            first = status;
    };
    feed(1000, 10000);
    pipe.append(stage("echo"));
    pipe.append(stage("exit", "0"));
    EXPECT_EQ(pipe.run(), 0);
    EXPECT_EQ(first, SIGPIPE);
}

TEST_F(PipePumpTest, ReadsInPiecesOfAtMost1024Bytes)
{
    size_t largest = 0;
    size_t total = 0;
    pipe.stdoutReceiver = [&](Chunk const& chunk) {
        largest = std::max(largest, chunk.size());
        total += chunk.size();
        EXPECT_FALSE(chunk.empty());
    };
    pipe.append(stage("spew", "50000"));
    EXPECT_EQ(pipe.run(), 0);
    EXPECT_EQ(largest, 1024U);
    EXPECT_EQ(total, 50000U);
}

TEST_F(PipePumpTest, DeliversWhatAStageHasWrittenJustBeforeItsEnd)
{
    pipe.append(stage("say", std::string(30000, 'O'), std::string(30000, 'E')));
    // The end is noted before anything has been read, because the exit handler is slow.
    pipe.exitHandler = [](unsigned long, int) { usleep(50000); };
    EXPECT_EQ(pipe.run(), 0);
    EXPECT_EQ(out, std::string(30000, 'O'));
    EXPECT_EQ(err, std::string(30000, 'E'));
}

TEST_F(PipePumpTest, DoesNotWaitForAGrandchildThatHoldsTheStreams)
{
    PipeOwner held = orvek::openPipe("pipe");
    fcntl(held.writeEnd.fd, F_SETFD, FD_CLOEXEC);
    pipe.append(stage("orphan", std::to_string(held.readEnd.fd)));
    EXPECT_EQ(pipe.run(), 0);
    EXPECT_EQ(openDescriptors().size(), descriptors.size() + 2);
}

TEST_F(PipePumpTest, ReadsTheStandardErrorOfTheLastStageOnly)
{
    pipe.append(stage("say", "1", "first"));
    pipe.append(stage("say", "2", "last"));
    EXPECT_EQ(pipe.run(), 0);
    EXPECT_EQ(err, "last");
}

TEST_F(PipePumpTest, SharesTheLastStandardErrorAmongAllStagesThatCapture)
{
    std::string of_first;
    std::string of_last;
    pipe.stderrMode = Unspecified;
    pipe.append(stage("say", "1", "first"));
    pipe.append(stage("spew", "100000"));
    for (auto& each : pipe.stages)
        each.stderrMode = Capture;
    pipe.stages[0].stderrReceiver = makeStringReceiver(of_first);
    pipe.stages[1].stderrReceiver = makeStringReceiver(of_last);
    EXPECT_EQ(pipe.run(), 0);
    EXPECT_EQ(of_first + of_last, std::string(100000, 'e'));
    EXPECT_NE(of_first, "");
}

TEST_F(PipePumpTest, DropsACapturedStandardErrorThatNobodyReceives)
{
    pipe.stderrReceiver.clear();
    pipe.append(stage("spew", "300000"));
    EXPECT_EQ(pipe.run(), 0);
    EXPECT_EQ(out.size(), 300000U);
}

TEST_F(PipePumpTest, NeedsNoReceiverForAStandardOutputThatStaysEmpty)
{
    pipe.stdoutReceiver.clear();
    pipe.append(stage("exit", "0"));
    EXPECT_EQ(pipe.run(), 0);
}

TEST_F(PipePumpTest, RepeatsWhatASignalHasInterrupted)
{
    for (char const* const call : {"poll", "write", "read", "close"}) {
        pipe = Pipe();
        out.clear();
        pipe.stdoutMode = Capture;
        pipe.stdoutReceiver = makeStringReceiver(out);
        feed(1, 5);
        pipe.append(stage("echo"));
        auto const source = pipe.stdinSource;
        pipe.stdinSource = [=](Chunk& chunk) {
            CallFailure::set(call, EINTR);
            return source(chunk);
        };
        EXPECT_EQ(pipe.run(), 0) << call;
        EXPECT_EQ(out.size(), 5U) << call;
    }
}

TEST_F(PipePumpTest, SurvivesAStormOfSignals)
{
    SignalStorm const storm;
    feed(200, 20000);
    pipe.append(stage("echo"));
    pipe.append(stage("drip"));
    pipe.append(stage("echo"));
    EXPECT_EQ(pipe.run(), 0);
    EXPECT_EQ(out.size(), 200U * 20000U);
    EXPECT_GT(SignalStorm::interruptions, 100);
}

TEST_F(PipePumpTest, LosesNoEndOfAnyOfManyShortRuns)
{
    for (int i = 0; i < 100; ++i) {
        pipe = Pipe();
        for (int n = 0; n < 3; ++n)
            pipe.append(stage("exit", std::to_string(n)));
        EXPECT_EQ(pipe.run(), 2 << 8);
    }
}
