#include "lib/programs/forkexec.h"

#include "lib/report/owned.h"
#include "support/memory_faults.h"
#include "support/shell_script.h"
#include "support/syscall_faults.h"
#include "support/temp_dir.h"
#include "support/tidy_run.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <csignal>
#include <cstdio>
#include <string>

#include <fcntl.h>
#include <sys/wait.h>
#include <unistd.h>

namespace {

void print(int result, char* output)
{
    CString const owned(output);
    printf("[%d|%s]", result, output ? output : "null");
    fflush(stdout);
}

void printOutput(std::string const& script)
{
    char* output = nullptr;
    int const result = fork_execvv_getoutput(&output, shell, Script(script).args());
    print(result, output);
}

ChildRun printedOf(std::string const& script)
{
    return tidyRun([&] { printOutput(script); });
}

std::string many(size_t count)
{
    return "head -c " + std::to_string(count) + " /dev/zero | tr '\\0' a; ";
}

} // namespace

TEST(ForkExecvvGetoutput, MixesBothStreamsInTheirOrder)
{
    auto const run = printedOf("echo one; echo two >&2; echo three");
    EXPECT_EQ(run.out, "[0|one\ntwo\nthree\n]");
    EXPECT_EQ(run.err, "");
    EXPECT_EQ(run.status, 0);
}

TEST(ForkExecvvGetoutput, GivesAnEmptyTextForASilentProgram)
{
    EXPECT_EQ(printedOf("exit 0").out, "[0|]");
}

TEST(ForkExecvvGetoutput, CollectsMegabytesAndEveryLengthAroundItsSteps)
{
    for (size_t const length : {4095UL, 4096UL, 4097UL, 8192UL, 3000000UL}) {
        auto const run = printedOf(many(length));
        EXPECT_EQ(run.out, "[0|" + std::string(length, 'a') + "]") << length;
        EXPECT_EQ(run.status, 0);
    }
}

TEST(ForkExecvvGetoutput, ReportsAnExitStatusAndGivesNoOutput)
{
    for (int const status : {1, 42, 254}) {
        std::string const word = std::to_string(status);
        auto const run = printedOf("echo because; exit " + word);
        EXPECT_EQ(run.err, "utility /bin/sh failed (result=" + word + "):\nbecause\n");
        EXPECT_EQ(run.out, run.err + "[" + word + "|null]");
        EXPECT_EQ(run.status, 0);
    }
}

TEST(ForkExecvvGetoutput, ReportsStatus255AsAnError)
{
    auto const run = printedOf("echo because; exit 255");
    EXPECT_EQ(run.err, "error:\nbecause\n");
    EXPECT_EQ(run.out, "error:\nbecause\n[255|null]");
    EXPECT_EQ(run.status, 0);
}

TEST(ForkExecvvGetoutput, ReportsAMissingProgramAsAnError)
{
    auto const run = tidyRun([] {
        printf("once ");
        char* output = nullptr;
        print(fork_execvv_getoutput(&output, "/nonexistent/program", Script("").args()), nullptr);
    });
    EXPECT_EQ(run.err, "error:\nCannot exec /nonexistent/program:\nNo such file or directory\n");
    EXPECT_EQ(run.out, "once " + run.err + "[255|null]");
    EXPECT_EQ(run.status, 0);
}

TEST(ForkExecvvGetoutput, ReportsAChildThatDiedByASignal)
{
    auto const run = printedOf("echo half; kill -TERM $$");
    EXPECT_EQ(run.err, "utility /bin/sh killed (signal 15):\nhalf\n");
    EXPECT_EQ(run.out, run.err + "[-1|null]");
    EXPECT_EQ(run.status, 0);
}

TEST(ForkExecvvGetoutput, ReportsAChildThatIsStopped)
{
    TempDir const dir;
    auto const run = tidyRun([&] {
        printOutput("echo half; echo $$ > " + dir / "pid" + "; exec >&- 2>&-; kill -STOP $$");
        endProcessOf(dir / "pid");
    });
    EXPECT_EQ(run.err, "utility /bin/sh crashed (status " + std::to_string(W_STOPCODE(SIGSTOP)) +
                           "):\nhalf\n");
    EXPECT_EQ(run.out, run.err + "[-1|null]");
    EXPECT_EQ(run.status, 0);
}

TEST(ForkExecvvGetoutput, ReportsAChildThatCannotBeWaitedFor)
{
    auto const run = tidyRun([] {
        signal(SIGCHLD, SIG_IGN);
        printOutput("exit 0");
    });
    EXPECT_THAT(run.err,
                ::testing::MatchesRegex("Error occured during waiting the child process with pid: "
                                        "[0-9]+: No child processes\n\n"
                                        "System error 10: No child processes\n"));
    EXPECT_EQ(run.out, run.err + "[-1|null]");
    EXPECT_EQ(run.status, 0);
}

TEST(ForkExecvvGetoutput, NoticesTheChildsEndWhileItsStreamIsHeld)
{
    TempDir const dir;
    auto const run = tidyRun([&] {
        printOutput("echo early; sleep 30 & echo $! > " + dir / "holder");
        endProcessOf(dir / "holder");
    });
    EXPECT_EQ(run.out, "[0|early\n]");
    EXPECT_EQ(run.status, 0);
}

TEST(ForkExecvvGetoutput, WaitsForChildrenThatAreSlowOrCloseStreams)
{
    EXPECT_EQ(printedOf("sleep 1.3; echo late; exec >&- 2>&-; sleep 0.2; exit 0").out,
              "[0|late\n]");
}

// The poll with a time limit always fails here, so the child's end is noticed
// first.
TEST(ForkExecvvGetoutput, ReadsWhatAnEndedChildLeftInItsPipe)
{
    auto const run = tidyRun([] {
        failSystemCallWith(SYS_poll, 2, 1000, EINTR);
        printOutput(many(30000));
    });
    EXPECT_EQ(run.out, "[0|" + std::string(30000, 'a') + "]");
    EXPECT_EQ(run.status, 0);
}

TEST(ForkExecvvGetoutput, ReportsAFailedReadAndStillWaits)
{
    auto const run = tidyRun([] {
        // Starting a program never reads 4096 bytes.
        failSystemCallWith(SYS_read, 2, 4096, EIO);
        errno = 0;
        printOutput("exit 0");
    });
    EXPECT_EQ(run.err, "Cannot read child output:\nInput/output error\n"
                       "System error 5: Input/output error\n");
    EXPECT_EQ(run.out, run.err + "[0|]");
    EXPECT_EQ(run.status, 0);
}

TEST(ForkExecvvGetoutput, WorksWithoutTheFlagForReadingWithoutWaiting)
{
    auto const run = tidyRun([] {
        failSystemCallWith(SYS_fcntl, 1, F_SETFL, EPERM);
        printOutput("echo result");
    });
    EXPECT_EQ(run.out, "[0|result\n]");
}

TEST(ForkExecvvGetoutput, InheritsTheOtherDescriptorsButNotThePipe)
{
    auto const run = tidyRun([] {
        dup2(1, 50);
        printOutput("p=$(readlink /proc/$$/fd/1); ls -l /proc/$$/fd | grep -cF $p; [ -e "
                    "/proc/$$/fd/50 ] && echo inherited");
        close(50);
    });
    EXPECT_EQ(run.out, "[0|2\ninherited\n]");
    EXPECT_EQ(run.status, 0);
}

TEST(ForkExecvvGetoutput, WorksWhereTheCallerHasAStandardStreamClosed)
{
    for (int const stream : {0, 2}) {
        auto const run = tidyRun([=] {
            int const kept = dup(stream);
            close(stream);
            printOutput("echo one; echo two >&2");
            dup2(kept, stream);
            close(kept);
        });
        EXPECT_EQ(run.out, "[0|one\ntwo\n]") << stream;
        EXPECT_EQ(run.status, 0);
    }
}

TEST(ForkExecvvGetoutput, EndsTheProcessWithoutAForkOrAPipe)
{
    auto const no_fork = tidyRun([] {
        failFork(EAGAIN);
        printOutput("echo started");
    });
    EXPECT_EQ(no_fork.status, 1);
    EXPECT_EQ(no_fork.out, "Cannot fork():\nResource temporarily unavailable\n"
                           "System error 11: Resource temporarily unavailable\n");
    auto const no_pipe = tidyRun([] {
        failSystemCall(SYS_pipe, EMFILE);
        failSystemCall(SYS_pipe2, EMFILE);
        printOutput("echo started");
    });
    EXPECT_EQ(no_pipe.status, 1);
    EXPECT_EQ(no_pipe.out, "Cannot fork():\nToo many open files\n"
                           "System error 24: Too many open files\n");
}

TEST(ForkExecvvGetoutput, EndsTheProcessWithoutMemoryForTheOutput)
{
    for (int const step : {1, 3}) {
        auto const run = tidyRun([=] {
            AllocationFailure const failure(step);
            printOutput(many(10000));
        });
        EXPECT_EQ(run.status, 1);
        EXPECT_EQ(run.out, "Cannot allocate buffer:\nCannot allocate memory\n"
                           "System error 12: Cannot allocate memory\n");
        EXPECT_EQ(run.err, run.out);
    }
}

TEST(ForkExecvGetoutput, PutsThePathBeforeAListOfAnyLength)
{
    auto const run = tidyRun([] {
        char* output = nullptr;
        int const result =
            fork_execv_getoutput(&output, shell, "-c", "tr '\\0' ' ' < /proc/$$/cmdline; echo $#",
                                 "zero", HUNDRED_ARGUMENTS, HUNDRED_ARGUMENTS, nullptr);
        print(result, output);
    });
    EXPECT_TRUE(run.out.starts_with("[0|/bin/sh -c ")) << run.out;
    EXPECT_TRUE(run.out.ends_with(" x x 200\n]")) << run.out;
    EXPECT_EQ(run.status, 0);
}

TEST(ForkExecvGetoutput, EndsTheProcessWithoutMemoryForTheList)
{
    auto const run = tidyRun([] {
        char* output = nullptr;
        AllocationFailure const failure(1);
        print(fork_execv_getoutput(&output, shell, "-c", "echo started", nullptr), output);
    });
    EXPECT_EQ(run.status, 1);
    EXPECT_EQ(run.out, "Cannot allocate buffer:\nCannot allocate memory\n"
                       "System error 12: Cannot allocate memory\n");
}
