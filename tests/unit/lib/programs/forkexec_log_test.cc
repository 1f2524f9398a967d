#include "lib/programs/forkexec.h"

#include "support/shell_script.h"
#include "support/temp_dir.h"
#include "support/tidy_run.h"

#include <gtest/gtest.h>

#include <cstdio>
#include <string>

namespace {

constexpr char missing[] = "/nonexistent/program";

ChildRun logged(std::string const& script, int ignore_exit_status = 0)
{
    return tidyRun([&] {
        int const result = fork_execv_log(shell, Script(script).args(), ignore_exit_status);
        printf("[%d]", result);
    });
}

} // namespace

TEST(ForkExecvLog, IsSilentAboutAProgramThatSucceeds)
{
    auto const run = logged("echo result; echo complaint >&2");
    EXPECT_EQ(run.out, "[0]");
    EXPECT_EQ(run.err, "");
    EXPECT_EQ(run.status, 0);
}

TEST(ForkExecvLog, PrintsAFailingProgramsOutputAndErrorsOnStandardError)
{
    auto const run = logged("echo result; echo complaint >&2; exit 3");
    EXPECT_EQ(run.err, "result\n/bin/sh execution failed:\ncomplaint\n");
    EXPECT_EQ(run.out, "/bin/sh execution failed:\ncomplaint\n[3]");
    EXPECT_EQ(run.status, 0);
}

TEST(ForkExecvLog, SaysSoWhenAProgramFailsWithoutAnyErrors)
{
    auto const run = logged("printf 'result\\n\\033[2J\\n'; exit 3");
    EXPECT_EQ(run.err, "result\n\\x1b[2J\n/bin/sh execution failed (no output)\n");
    EXPECT_EQ(run.out, "/bin/sh execution failed (no output)\n[3]");
}

TEST(ForkExecvLog, SaysSoWhenNothingWasSeenOfTheStreams)
{
    TempDir const dir;
    auto const run = tidyRun([&] {
        Script const script("sleep 30 & echo $! > " + dir / "holder" + "; exit 2");
        fork_execv_log(shell, script.args(), 0);
        endProcessOf(dir / "holder");
    });
    EXPECT_EQ(run.err, "/bin/sh execution failed (no output)\n");
    EXPECT_EQ(run.status, 0);
}

TEST(ForkExecvLog, ReportsAChildThatDiedByASignal)
{
    EXPECT_EQ(logged("kill -KILL $$").out, "/bin/sh execution failed (no output)\n[-1]");
}

TEST(ForkExecvLog, IgnoresAFailureWhenAskedToButStillGivesIt)
{
    auto const run = logged("echo result; echo complaint >&2; exit 3", 1);
    EXPECT_EQ(run.out, "[3]");
    EXPECT_EQ(run.err, "");
    EXPECT_EQ(run.status, 0);
}

TEST(ForkExecvLog, PrintsPercentSignsAsTheyStand)
{
    auto const run = logged("printf '%%s%%n%%d\\n'; printf '%%s%%n\\n' >&2; exit 1");
    EXPECT_EQ(run.err, "%s%n%d\n/bin/sh execution failed:\n%s%n\n");
}

TEST(ForkExecvLog, ReportsAMissingProgram)
{
    auto const run = tidyRun([] { fork_execv_log(missing, Script("").args(), 0); });
    EXPECT_EQ(run.err, "/nonexistent/program execution failed:\n"
                       "fork_execv: execv(\"/nonexistent/program\") failed: "
                       "No such file or directory\n");
    EXPECT_EQ(run.status, 0);
}

TEST(ForkExeclLog, ReportsAFailure)
{
    auto const run = tidyRun(
        [] { printf("[%d]", fork_execl_log(shell, "sh", "-c", "exit 3", "zero", nullptr)); });
    EXPECT_EQ(run.out, "/bin/sh execution failed (no output)\n[3]");
    EXPECT_EQ(run.status, 0);
}

TEST(ForkExeclLog, CutsTheListAtAHundredEntries)
{
    auto const run = tidyRun([] {
        printf("[%d]",
               fork_execl_log(shell, "sh", "-c", "exit $#", "sh", HUNDRED_ARGUMENTS, nullptr));
    });
    EXPECT_EQ(run.out, "/bin/sh execution failed (no output)\n[96]");
}
