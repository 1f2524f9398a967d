#include "lib/programs/popen_exec.h"

#include "lib/report/owned.h"
#include "support/memory_faults.h"
#include "support/syscall_faults.h"
#include "support/tidy_run.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <cstdio>
#include <string>

using ::testing::MatchesRegex;

namespace {

void printOutput(std::string const& command)
{
    char* output = nullptr;
    int const result = popen_exec_getoutput(&output, command.c_str());
    CString const owned(output);
    printf("[%d|%s]", result, output ? output : "null");
}

ChildRun printedOf(std::string const& command)
{
    return tidyRun([&] { printOutput(command); });
}

std::string many(size_t count)
{
    return "head -c " + std::to_string(count) + " /dev/zero | tr '\\0' a";
}

ChildRun reportOf(char const* command)
{
    return tidyRun([&] { printf("[%d]", popen_exec(command)); });
}

} // namespace

TEST(PopenExecGetoutput, RunsTheCommandByTheShellAndCollectsItsOutput)
{
    auto const run = printedOf("printf 'b\\na\\n' | sort; echo complaint >&2");
    EXPECT_EQ(run.out, "[0|a\nb\n]");
    EXPECT_EQ(run.err, "complaint\n");
    EXPECT_EQ(run.status, 0);
}

TEST(PopenExecGetoutput, GivesStatusAndOutputOfAFailingCommand)
{
    EXPECT_EQ(printedOf("echo because; exit 3").out, "[3|because\n]");
    EXPECT_EQ(printedOf("exit 255").out, "[255|]");
}

TEST(PopenExecGetoutput, GivesMinusOneForASignalledCommand)
{
    auto const run = printedOf("echo half; kill -KILL $$");
    EXPECT_EQ(run.out, "[-1|half\n]");
    EXPECT_EQ(run.status, 0);
}

TEST(PopenExecGetoutput, CollectsMegabytesAndEveryLengthAroundItsSteps)
{
    for (size_t const length : {4095UL, 4096UL, 4097UL, 8192UL, 8193UL, 2000000UL})
        EXPECT_EQ(printedOf(many(length)).out, "[0|" + std::string(length, 'a') + "]");
}

TEST(PopenExecGetoutput, PrintsThatTheCommandCannotBeRun)
{
    auto const run = tidyRun([] {
        failFork(EAGAIN);
        printOutput("echo started");
    });
    EXPECT_EQ(run.err, "popen_exec: failed to execute command: fork or pipe calls failed, or "
                       "cannon allocate memory\n");
    EXPECT_EQ(run.out, "[-1|null]");
    EXPECT_EQ(run.status, 0);
}

TEST(PopenExecGetoutput, PrintsThatThereIsNoMemory)
{
    auto const run = tidyRun([] {
        AllocationFailure const failure(1);
        // Nobody reads its output, and it may or may not notice.
        printOutput("echo started 2>/dev/null");
    });
    EXPECT_EQ(run.err, "popen_exec: failed to allocate memory\n");
    EXPECT_EQ(run.out, "[-1|null]");
    EXPECT_EQ(run.status, 0);
}

TEST(PopenExecGetoutput, WarnsOnceWithoutMemoryAndLetsTheCommandFinish)
{
    auto const run = tidyRun([] {
        AllocationFailure const failure(2);
        printOutput(many(200000) + " && exit 6");
    });
    EXPECT_EQ(run.err,
              "popen_exec: warning: failed to allocate memory for command output buffer\n");
    EXPECT_EQ(run.out, "[6|" + std::string(4096, 'a') + "]");
    EXPECT_EQ(run.status, 0);
}

TEST(PopenExecGetoutput, GivesMinusOneAndTheOutputWhenWaitingFails)
{
    auto const run = tidyRun([] {
        failSystemCall(SYS_wait4, ECHILD);
        printOutput("echo result");
    });
    EXPECT_EQ(run.out, "[-1|result\n]");
}

TEST(PopenExec, IsSilentAboutACommandThatSucceeds)
{
    auto const run = reportOf("echo result");
    EXPECT_EQ(run.out, "[0]");
    EXPECT_EQ(run.err, "");
    EXPECT_EQ(run.status, 0);
}

TEST(PopenExec, ReportsTheExitStatusWithTheOutput)
{
    auto const run = reportOf("echo because 100%s; exit 3");
    EXPECT_EQ(run.err, "popen_exec: command failed code: 3 , because 100%s\n\n");
    EXPECT_EQ(run.out, run.err + "[3]");
    EXPECT_EQ(run.status, 0);
}

TEST(PopenExec, SaysSoWhenACommandFailsWithoutOutput)
{
    auto const run = reportOf("exit 3");
    EXPECT_EQ(run.err, "popen_exec: command failed code: 3 , error: none\n");
    EXPECT_EQ(run.out, run.err + "[3]");
}

TEST(PopenExec, ReportsACommandWithoutAnExitStatusByItsText)
{
    auto const run = reportOf("kill -KILL $$");
    EXPECT_EQ(run.err, "popen_exec: failed to execute command: kill -KILL $$\n");
    EXPECT_EQ(run.out, run.err + "[-1]");
    EXPECT_EQ(run.status, 0);
}

TEST(PopenExec, ReportsTheSystemErrorOfAFailedStart)
{
    auto const run = tidyRun([] {
        failFork(EAGAIN);
        printf("[%d]", popen_exec("echo started"));
    });
    EXPECT_THAT(run.out, MatchesRegex("popen_exec: failed to execute command: echo started\n\n"
                                      "System error [0-9]+: [^\n]+\n\\[-1\\]"));
    EXPECT_EQ(run.status, 0);
}
