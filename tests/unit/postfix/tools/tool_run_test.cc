#include "postfix/tools/tool_run.h"

#include "postfix/tools/tool_result.h"
#include "support/host_test.h"
#include "support/stand_in.h"

#include <gtest/gtest.h>

using namespace orvek::mail::postfix;

namespace {

class ToolRunOnHost : public HostTest
{
protected:
    void SetUp() override
    {
        HostTest::SetUp();
        if (HasFatalFailure())
            return;
        postmap.prepare();
        postconf.prepare();
    }

    StandIn postmap{"/usr/sbin/postmap"};
    StandIn postconf{"/usr/sbin/postconf"};
};

TextSource sourceOf(std::string const& text)
{
    return [text](std::vector<char>& piece) {
        piece.assign(text.begin(), text.end());
        return false;
    };
}

} // namespace

TEST_F(ToolRunOnHost, TellsStatusAndDiagnosticsOfPostmap)
{
    postmap.run("echo bad >&2; exit 3");

    ToolResult const result = runPostmap({"-q", "k", "hash:/x"});

    EXPECT_TRUE(hasFailed(result.status));
    EXPECT_EQ(result.diagnostics, "bad\n");
    EXPECT_EQ(result.output, "");
    EXPECT_EQ(postmap.journal(), "-q k hash:/x\n");
}

TEST_F(ToolRunOnHost, FeedsPostmapAndCollectsWhatItPrints)
{
    postmap.run("cat");

    EXPECT_EQ(runPostmap({"-i"}, ToolStreams::fedBy(sourceOf("a b\n")).collected()).output,
              "a b\n");
}

TEST_F(ToolRunOnHost, GivesPostmapNoInputWhenAsked)
{
    postmap.run("readlink /proc/$$/fd/0");

    EXPECT_EQ(runPostmap({"-s"}, ToolStreams::withoutInput().collected()).output, "/dev/null\n");
}

TEST_F(ToolRunOnHost, HandsPiecesOfTheOutputToTheReceiver)
{
    postmap.run("echo text");
    std::string received;

    ToolResult const result =
        runPostmap({"-s"}, ToolStreams::withoutInput().receivedBy([&](auto const& piece) {
            received.append(piece.begin(), piece.end());
        }));

    EXPECT_EQ(received, "text\n");
    EXPECT_EQ(result.output, "");
}

TEST_F(ToolRunOnHost, CollectsBothStreamsOfPostconf)
{
    postconf.run("echo value; echo note >&2; readlink /proc/$$/fd/0");

    ToolResult const result = runPostconf({"-h", "name"});

    EXPECT_FALSE(hasFailed(result.status));
    EXPECT_EQ(result.output, "value\n/dev/null\n");
    EXPECT_EQ(result.diagnostics, "note\n");
    EXPECT_EQ(postconf.journal(), "-h name\n");
}

TEST_F(ToolRunOnHost, EndsAPostmapThatIsBusyForTooLong)
{
    postmap.run("ulimit -t; kill -XCPU $$");
    ToolStreams streams = ToolStreams::withoutInput().collected();
    streams.processorSeconds = 17;

    ToolResult const result = runPostmap({"-s"}, streams);

    EXPECT_EQ(result.output, "17\n");
    EXPECT_TRUE(hasFailed(result.status));
    EXPECT_EQ(result.diagnostics, "postmap has used up its processor time\n");
}

TEST_F(ToolRunOnHost, EndsABusyPostmapThatMindsNoSignal)
{
    postmap.run("trap '' XCPU; while :; do :; done");
    ToolStreams streams = ToolStreams::withoutInput();
    streams.processorSeconds = 1;

    ToolResult const result = runPostmap({"-i"}, streams);

    EXPECT_TRUE(hasFailed(result.status));
    EXPECT_EQ(result.diagnostics, "postmap has used up its processor time\n");
}
