#include "process/pipe.h"

#include "process/sig_blocker.h"
#include "support/child_run.h"
#include "support/pump_test.h"
#include "support/temp_dir.h"
#include "util/errors.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <stdexcept>
#include <string>
#include <vector>

using namespace orvek::process;
using orvek::SystemError;
using ::testing::ElementsAre;
using ::testing::HasSubstr;
using ::testing::Not;

namespace {

class PipeTest : public LaunchTest
{
protected:
    PipeTest()
    {
        pipe.stdinMode = DevNull;
        pipe.stdoutMode = Capture;
        pipe.stdoutReceiver = makeStringReceiver(out);
    }

    std::string out;
    Pipe pipe;
};

} // namespace

TEST_F(PipeTest, GivesTheRawWaitStatusOfTheLastStage)
{
    pipe.append(stage("exit", "3"));
    pipe.append(stage("exit", "7"));
    EXPECT_EQ(pipe.run(), 7 << 8);
    EXPECT_THAT(pipe.statuses, ElementsAre(ProcessStatus(1, 3 << 8), ProcessStatus(1, 7 << 8)));
}

TEST_F(PipeTest, GivesTheSignalThatEndedTheLastStage)
{
    pipe.append(stage("signal", "9"));
    EXPECT_EQ(pipe.run(), 9);
}

TEST_F(PipeTest, ConnectsItsStages)
{
    pipe.append(stage("say", "begin", "\n"));
    pipe.stages[0].stderrMode = DevNull;
    pipe.append(stage("echo", " middle"));
    pipe.append(stage("echo", " end"));
    EXPECT_EQ(pipe.run(), 0);
    EXPECT_EQ(out, "begin middle end");
}

TEST_F(PipeTest, RunsOnce)
{
    pipe.append(stage("exit", "0"));
    pipe.run();
    EXPECT_EQ(textOf<std::logic_error>([&] { pipe.run(); }), "the pipe has been launched already");
    EXPECT_EQ(textOf<std::logic_error>([&] { pipe.append(stage("exit", "0")); }),
              "adding processes to the launched pipe is prohibited");
}

TEST_F(PipeTest, RunsAgainWhenAFreshOneIsAssigned)
{
    pipe.append(stage("exit", "1"));
    EXPECT_EQ(pipe.run(), 1 << 8);
    pipe = Pipe();
    EXPECT_TRUE(pipe.stages.empty());
    EXPECT_TRUE(pipe.stdoutReceiver.empty());
    EXPECT_EQ(pipe.stdinMode, Unspecified);
    pipe.append(stage("exit", "2"));
    EXPECT_EQ(pipe.run(), 2 << 8);
}

TEST_F(PipeTest, HasNothingToRunWithoutStages)
{
    EXPECT_EQ(textOf<std::logic_error>([&] { pipe.run(); }),
              "No processes to launch were assigned so far");
}

TEST_F(PipeTest, LeavesUnspecifiedStreamsToTheTools)
{
    auto const run = inChild([] {
        Pipe plain;
        plain.append(stage("say", "O", "E", "0"));
        return plain.run();
    });
    EXPECT_EQ(run.status, 0);
    EXPECT_EQ(run.out, "O");
    EXPECT_EQ(run.err, "E");
}

TEST_F(PipeTest, GivesTheCallersDescriptorsToFirstAndLastStage)
{
    TempDir const dir;
    writeFile(dir / "in", "text");
    orvek::FdOwner const in(open((dir / "in").c_str(), O_RDONLY));
    orvek::FdOwner const result(open((dir / "out").c_str(), O_WRONLY | O_CREAT, 0600));
    pipe.stdinMode = in.fd;
    pipe.stdoutMode = result.fd;
    pipe.append(stage("echo", " one"));
    pipe.append(stage("echo", " two"));
    EXPECT_EQ(pipe.run(), 0);
    EXPECT_EQ(readFile(dir / "out"), "text one two");
}

TEST_F(PipeTest, StartsStagesWithOnlyChildSignalsBlocked)
{
    pipe.append(stage("report"));
    pipe.run();
    EXPECT_THAT(out, HasSubstr("blocked: 17\n"));
    EXPECT_THAT(out, HasSubstr("sigpipe: default\n"));
    EXPECT_THAT(out, HasSubstr("session: inherited\n"));
}

TEST_F(PipeTest, SeesStagesEndThoughStartedWithChildSignalsBlocked)
{
    orvek::SigBlocker blocker;
    blocker.block(SIGCHLD);
    pipe.append(stage("exit", "3"));
    pipe.append(stage("exit", "7"));
    EXPECT_EQ(pipe.run(), 7 << 8);
    EXPECT_EQ(blockedSignals().count(SIGCHLD), 1U);
}

TEST_F(PipeTest, LeavesAnIgnoredPipeSignalIgnored)
{
    signal(SIGPIPE, SIG_IGN);
    pipe.append(stage("report"));
    pipe.run();
    EXPECT_THAT(out, HasSubstr("sigpipe: other\n"));
    EXPECT_FALSE(hasDefaultAction(SIGPIPE));
    signal(SIGPIPE, SIG_DFL);
}

TEST_F(PipeTest, FillsTheDirectoryOfStagesThatHaveNone)
{
    TempDir const of_pipe;
    TempDir const of_stage;
    pipe.cwd = of_pipe.path();
    pipe.append(stage("report"));
    pipe.run();
    EXPECT_THAT(out, HasSubstr("cwd: " + of_pipe.path() + "\n"));
    out.clear();
    pipe.statuses.clear();
    pipe.stages[0].cwd = of_stage.path();
    pipe.run();
    EXPECT_THAT(out, HasSubstr("cwd: " + of_stage.path() + "\n"));
}

TEST_F(PipeTest, ReplacesTheEnvironmentOnlyOfAStageThatHasOne)
{
    char const* const of_pipe[] = {"WHOSE=pipe", nullptr};
    char const* const of_stage[] = {"WHOSE=stage", nullptr};
    pipe.env = of_pipe;
    pipe.append(stage("report"));
    pipe.run();
    EXPECT_THAT(out, Not(HasSubstr("WHOSE=")));
    out.clear();
    pipe.statuses.clear();
    pipe.stages[0].env = of_stage;
    pipe.run();
    EXPECT_THAT(out, HasSubstr("env: WHOSE=pipe\n"));
    out.clear();
    pipe.statuses.clear();
    pipe.env = nullptr;
    pipe.stages[0].env = of_stage;
    pipe.run();
    EXPECT_THAT(out, HasSubstr("env: WHOSE=stage\n"));
}

TEST_F(PipeTest, ClosesTheDescriptorsOfAllStagesOrOfOne)
{
    orvek::FdOwner const other(fcntl(0, F_DUPFD, 70));
    pipe.append(stage("report"));
    pipe.run();
    EXPECT_THAT(out.substr(0, out.find('\n')), HasSubstr(" 70"));
    for (bool* const flag : {&pipe.closeDescriptors, &pipe.stages[0].closeDescriptors}) {
        pipe.closeDescriptors = pipe.stages[0].closeDescriptors = false;
        *flag = true;
        out.clear();
        pipe.statuses.clear();
        pipe.run();
        EXPECT_THAT(out, HasSubstr("fds: 0 1 2\n"));
    }
}

TEST_F(PipeTest, RunsItsSetupInStagesThatHaveNone)
{
    pipe.childSetup = [] { setenv("SETUP", "pipe", 1); };
    pipe.append(stage("report"));
    pipe.run();
    EXPECT_THAT(out, HasSubstr("env: SETUP=pipe\n"));
    out.clear();
    pipe.statuses.clear();
    pipe.stages[0].childSetup = [] { setenv("SETUP", "stage", 1); };
    pipe.run();
    EXPECT_THAT(out, HasSubstr("env: SETUP=stage\n"));
}

TEST_F(PipeTest, FillsTheStandardErrorModeTogetherWithItsReceiver)
{
    std::string of_pipe;
    std::string of_stage;
    pipe.stderrMode = Capture;
    pipe.stderrReceiver = makeStringReceiver(of_pipe);
    pipe.append(stage("say", "O", "E"));
    pipe.stages[0].stderrReceiver = makeStringReceiver(of_stage);
    pipe.run();
    EXPECT_EQ(of_pipe, "E");
    EXPECT_EQ(of_stage, "");
}

TEST_F(PipeTest, KeepsAStagesOwnStandardErrorMode)
{
    std::string captured;
    pipe.stderrMode = Capture;
    pipe.stderrReceiver = makeStringReceiver(captured);
    pipe.append(stage("say", "O", "E"));
    pipe.stages[0].stderrMode = MergeWithStdout;
    pipe.run();
    EXPECT_EQ(out, "OE");
    EXPECT_EQ(captured, "");
}

TEST_F(PipeTest, TellsTheExitHandlerHowEachStageEnded)
{
    std::vector<std::pair<unsigned long, int>> ends;
    pipe.exitHandler = [&](unsigned long index, int status) { ends.emplace_back(index, status); };
    bool own = false;
    pipe.append(stage("exit", "4"));
    pipe.append(stage("signal", "15"));
    pipe.append(stage("exit", "0"));
    pipe.stages[2].exitHandler = [&](unsigned long index, int status) {
        own = index == 2 && status == 0;
    };
    EXPECT_EQ(pipe.run(), 0);
    EXPECT_THAT(ends, ::testing::UnorderedElementsAre(std::pair(0UL, 4 << 8), std::pair(1UL, 15)));
    EXPECT_TRUE(own);
}

TEST_F(PipeTest, ReportsNoStatusOfAStageThatGoesOn)
{
    ProcessStatus of_first;
    pipe.append(stage("idle", "300"));
    pipe.append(stage("exit", "4"));
    pipe.stages[1].exitHandler = [&](unsigned long, int) { of_first = pipe.statuses[0]; };
    EXPECT_EQ(pipe.run(), 4 << 8);
    EXPECT_EQ(of_first, ProcessStatus(0, -1));
}

TEST_F(PipeTest, RaisesAMissingProgram)
{
    pipe.append(Parameters<PipeProcessFlags>("no-such-program"));
    try {
        pipe.run();
        ADD_FAILURE() << "no exception";
    } catch (SystemError const& e) {
        EXPECT_EQ(typeid(e), typeid(SystemError));
        EXPECT_STREQ(e.what(), "execvp: No such file or directory");
        EXPECT_EQ(e.code(), ENOENT);
    }
    EXPECT_TRUE(pipe.statuses.empty());
}

TEST_F(PipeTest, RaisesAMissingDirectory)
{
    pipe.cwd = "/no/such/directory";
    pipe.append(stage("exit", "0"));
    EXPECT_EQ(textOf<SystemError>([&] { pipe.run(); }), "cwd chdir: No such file or directory");
}

TEST_F(PipeTest, RaisesAMissingLaterProgramAndLeavesTheFirst)
{
    pipe.stdinMode = Capture;
    pipe.append(stage("count"));
    pipe.append(Parameters<PipeProcessFlags>("./missing"));
    pipe.append(stage("count"));
    EXPECT_EQ(textOf<SystemError>([&] { pipe.run(); }), "execv: No such file or directory");
    EXPECT_THAT(pipe.statuses, ElementsAre(ProcessStatus(0, -1)));
    EXPECT_EQ(__global_handler, nullptr);
    // The child ends with its input, and the catcher may have collected it already.
    int status = 0;
    EXPECT_TRUE(waitpid(-1, &status, 0) > 0 || errno == ECHILD);
    EXPECT_EQ(textOf<std::logic_error>([&] { pipe.run(); }), "the pipe has been launched already");
}

TEST_F(PipeTest, RaisesWhatTheSetupRaises)
{
    pipe.childSetup = [] { throw std::runtime_error("setup"); };
    pipe.append(stage("exit", "0"));
    EXPECT_EQ(textOf<std::runtime_error>([&] { pipe.run(); }), "setup");
}

TEST_F(PipeTest, DoesNotNest)
{
    pipe.append(stage("say", "O", "E", "0"));
    pipe.stderrMode = DevNull;
    pipe.stdoutReceiver = [](std::vector<char> const&) {
        Pipe inner;
        inner.append(stage("exit", "0"));
        inner.run();
    };
    EXPECT_EQ(textOf<std::logic_error>([&] { pipe.run(); }),
              "ProcessSetCatcher instance has been installed already");
    waitForAllChildren();
}

TEST_F(PipeTest, RunsWhicheverOfTheToolsStreamsAreClosed)
{
    for (int closed = 1; closed < 8; ++closed) {
        auto const run = inChild([closed] {
            for (int fd = 0; fd < 3; ++fd)
                if (closed & (1 << fd))
                    close(fd);
            auto const before = openDescriptors();
            std::string text;
            int calls = 0;
            Pipe pipe;
            pipe.stdinMode = pipe.stdoutMode = pipe.stderrMode = Capture;
            pipe.stdinSource = [&](std::vector<char>& chunk) {
                chunk.assign(10000, 'x');
                return ++calls < 30;
            };
            pipe.stdoutReceiver = makeStringReceiver(text);
            pipe.stderrReceiver = makeStringReceiver(text);
            pipe.append(stage("echo"));
            pipe.append(stage("echo"));
            pipe.append(stage("count"));
            if (pipe.run() != 0 || text != "300000")
                return 1;
            return openDescriptors() == before ? 0 : 2;
        });
        EXPECT_EQ(run.status, 0) << "with closed streams " << closed;
    }
}

TEST_F(PipeTest, RunsWithManyDescriptorsOpen)
{
    DescriptorCrowd const crowd(1500);
    pipe.stderrMode = Capture;
    pipe.closeDescriptors = true;
    pipe.append(stage("spew", "100000"));
    std::string err;
    pipe.stderrReceiver = makeStringReceiver(err);
    EXPECT_EQ(pipe.run(), 0);
    EXPECT_EQ(out.size(), 100000U);
    EXPECT_EQ(err.size(), 100000U);
    pipe = Pipe();
    pipe.stdoutMode = Capture;
    out.clear();
    pipe.stdoutReceiver = makeStringReceiver(out);
    pipe.stdinMode = DevNull;
    pipe.closeDescriptors = true;
    pipe.append(stage("report"));
    EXPECT_EQ(pipe.run(), 0);
    EXPECT_THAT(out, HasSubstr("fds: 0 1 2\n"));
}

TEST_F(PipeTest, LeavesNothingWhenDescriptorsRunOutAtAnyPoint)
{
    for (int left = 0; left < 9; ++left) {
        auto const run = inChild([left] {
            auto const before = openDescriptors();
            Pipe pipe;
            pipe.stdinMode = pipe.stdoutMode = pipe.stderrMode = Capture;
            pipe.append(stage("count"));
            pipe.append(stage("count"));
            try {
                DescriptorShortage const shortage(left);
                pipe.run();
                return 1;
            } catch (SystemError const& e) {
                if (e.code() != EMFILE)
                    return 2;
            }
            waitForAllChildren();
            return openDescriptors() == before && hasDefaultAction(SIGCHLD) ? 0 : 3;
        });
        EXPECT_EQ(run.status, 0) << "with " << left << " left";
    }
}

TEST_F(PipeTest, CollectsOutputInAString)
{
    std::string text = "a";
    collectOutput(text, {'b', '\0', 'c'});
    makeStringReceiver(text)({'d'});
    EXPECT_EQ(text, std::string("ab\0cd", 5));
}
