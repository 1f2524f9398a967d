#include "lib/programs/forkexec.h"

#include "lib/report/owned.h"
#include "support/memory_faults.h"
#include "support/shell_script.h"
#include "support/syscall_faults.h"
#include "support/temp_dir.h"
#include "support/tidy_run.h"

#include <gtest/gtest.h>

#include <cstdio>
#include <string>

#include <fcntl.h>

namespace {

constexpr char missing[] = "/nonexistent/program";

void print(int result, char* output)
{
    CString const owned(output);
    printf("%d|%s|", result, output ? output : "null");
    fflush(stdout);
}

void printOutput(std::string const& script)
{
    char* output = nullptr;
    int const result = fork_execv_getout(&output, shell, Script(script).args());
    print(result, output);
}

} // namespace

TEST(ForkExecvGetout, CollectsTheStandardOutputAndLeavesTheStandardErrorAlone)
{
    auto const run = tidyRun([] { printOutput("echo result; echo complaint >&2; exit 4"); });
    EXPECT_EQ(run.out, "4|result\n|");
    EXPECT_EQ(run.err, "complaint\n");
    EXPECT_EQ(run.status, 0);
}

TEST(ForkExecvGetout, GivesMinusOneForASignalledChild)
{
    auto const run = tidyRun([] { printOutput("kill -KILL $$"); });
    EXPECT_EQ(run.out, "-1||");
    EXPECT_EQ(run.status, 0);
}

TEST(ForkExecvGetout, SeesAMissingProgramAsExitStatus255)
{
    auto const run = tidyRun([] {
        char* out = nullptr;
        printf("%d", fork_execv_getout(&out, missing, Script("").args()));
        CString const owned(out);
    });
    EXPECT_EQ(run.out, "255");
    EXPECT_EQ(run.err, "fork_execv: execv(\"/nonexistent/program\") failed: "
                       "No such file or directory\n");
    EXPECT_EQ(run.status, 0);
}

TEST(ForkExecvGetout, DrainsMegabytes)
{
    auto const run = tidyRun([] { printOutput(flood(3000000, 'a', 1) + "wait"); });
    EXPECT_EQ(run.out, "0|" + std::string(3000000, 'a') + "|");
    EXPECT_EQ(run.status, 0);
}

TEST(ForkExecvGetout, NoticesTheChildsEndWhileItsStreamIsHeld)
{
    TempDir const dir;
    auto const run = tidyRun([&] {
        printOutput("echo early; sleep 30 & echo $! > " + dir / "holder" + "; exit 3");
        endProcessOf(dir / "holder");
    });
    EXPECT_EQ(run.out, "3|early\n|");
    EXPECT_EQ(run.status, 0);
}

TEST(ForkExecvGetout, EndsTheProcessWhenThePipeStaysBlocking)
{
    auto const no_pipe = tidyRun([] {
        failSystemCall(SYS_pipe, EMFILE);
        failSystemCall(SYS_pipe2, EMFILE);
        printOutput("echo started");
    });
    EXPECT_EQ(no_pipe.status, 1);
    EXPECT_EQ(no_pipe.out, "fork_execv_getouterr: pipe() failed\n"
                           "System error 24: Too many open files\n");
    auto const waiting = tidyRun([] {
        failSystemCallWith(SYS_fcntl, 1, F_SETFL, EPERM);
        printOutput("echo started");
    });
    EXPECT_EQ(waiting.status, 1);
    EXPECT_EQ(waiting.out, "fork_execv_getouterr: fcntl(O_NONBLOCK) failed\n"
                           "System error 1: Operation not permitted\n");
}

TEST(ForkExeclGetout, TakesAListOfAnyLength)
{
    auto const run = tidyRun([] {
        char* out = nullptr;
        int const result = fork_execl_getout(&out, shell, "sh", "-c", "echo $0 $#", "zero",
                                             HUNDRED_ARGUMENTS, "last", nullptr);
        print(result, out);
    });
    EXPECT_EQ(run.out, "0|zero 101\n|");
    EXPECT_EQ(run.status, 0);
}

TEST(ForkExeclGetout, EndsTheProcessWithoutMemoryForTheList)
{
    auto const run = tidyRun([] {
        char* out = nullptr;
        AllocationFailure const failure(1);
        static_cast<void>(fork_execl_getout(&out, shell, "sh", nullptr));
        printf("went on\n");
    });
    EXPECT_EQ(run.status, 1);
    EXPECT_EQ(run.out, "malloc() failed: Cannot allocate memory\n"
                       "System error 12: Cannot allocate memory\n");
}
