#include "lib/programs/forkexec.h"

#include "lib/report/owned.h"
#include "support/memory_faults.h"
#include "support/shell_script.h"
#include "support/syscall_faults.h"
#include "support/temp_dir.h"
#include "support/tidy_run.h"

#include <gtest/gtest.h>

#include <chrono>
#include <csignal>
#include <cstdio>
#include <cstring>
#include <functional>
#include <string>

#include <fcntl.h>
#include <sys/resource.h>
#include <sys/time.h>
#include <unistd.h>

namespace {

constexpr char missing[] = "/nonexistent/program";

struct Collected
{
    int result = 0;
    CString out;
    CString err;
};

Collected getouterr(std::string const& script)
{
    char* out = nullptr;
    char* err = nullptr;
    int const result = fork_execv_getouterr(&out, &err, shell, Script(script).args());
    return {result, CString(out), CString(err)};
}

char const* shown(CString const& text)
{
    return text ? text.get() : "null";
}

void print(Collected const& collected)
{
    printf("%d|%s|%s|", collected.result, shown(collected.out), shown(collected.err));
    fflush(stdout);
}

ChildRun printedOf(std::string const& script)
{
    return tidyRun([&] { print(getouterr(script)); });
}

double secondsOf(std::function<void()> const& code)
{
    auto const begin = std::chrono::steady_clock::now();
    code();
    return std::chrono::duration<double>(std::chrono::steady_clock::now() - begin).count();
}

} // namespace

TEST(ForkExecvGetouterr, CollectsTheTwoStreamsApart)
{
    auto const run = printedOf("echo result; echo complaint >&2; echo more");
    EXPECT_EQ(run.out, "0|result\nmore\n|complaint\n|");
    EXPECT_EQ(run.err, "");
    EXPECT_EQ(run.status, 0);
}

TEST(ForkExecvGetouterr, GivesTheExitStatus)
{
    for (int const status : {0, 1, 42, 254, 255}) {
        auto const run = printedOf("exit " + std::to_string(status));
        EXPECT_EQ(run.out, std::to_string(status) + "|||");
        EXPECT_EQ(run.status, 0);
    }
}

TEST(ForkExecvGetouterr, KeepsWhatASignalledChildPrintedAndGivesMinusOne)
{
    auto const run = printedOf("echo half; kill -KILL $$");
    EXPECT_EQ(run.out, "-1|half\n||");
    EXPECT_EQ(run.status, 0);
}

TEST(ForkExecvGetouterr, SeesAMissingProgramAsExitStatus255)
{
    auto const run = tidyRun([] {
        char* out = nullptr;
        char* err = nullptr;
        int const result = fork_execv_getouterr(&out, &err, missing, Script("").args());
        print({result, CString(out), CString(err)});
    });
    EXPECT_EQ(run.out, "255||fork_execv: execv(\"/nonexistent/program\") failed: "
                       "No such file or directory\n|");
    EXPECT_EQ(run.err, "");
    EXPECT_EQ(run.status, 0);
}

TEST(ForkExecvGetouterr, DrainsBothStreamsOfAChildThatFillsThem)
{
    size_t const out_size = 3000000;
    size_t const err_size = 2000000;
    auto const run = tidyRun([=] {
        auto const collected =
            getouterr(flood(out_size, 'a', 1) + flood(err_size, 'b', 2) + "wait; exit 5");
        printf("%d %d %d", collected.result,
               shown(collected.out) == std::string(out_size, 'a') ? 1 : 0,
               shown(collected.err) == std::string(err_size, 'b') ? 1 : 0);
    });
    EXPECT_EQ(run.out, "5 1 1");
    EXPECT_EQ(run.status, 0);
}

TEST(ForkExecvGetouterr, DrainsOneStreamWhileTheOtherIsSilent)
{
    auto const run = tidyRun([] {
        auto const collected = getouterr(flood(1000000, 'b', 2) + "wait; echo done");
        printf("%s%zu", shown(collected.out), strlen(shown(collected.err)));
    });
    EXPECT_EQ(run.out, "done\n1000000");
}

TEST(ForkExecvGetouterr, TerminatesTextsOfEveryLengthAroundItsSteps)
{
    for (size_t const length : {4095UL, 4096UL, 4097UL, 8191UL, 8192UL, 8193UL}) {
        auto const run = printedOf(flood(length, 'a', 1) + "wait");
        EXPECT_EQ(run.out, "0|" + std::string(length, 'a') + "||");
    }
}

TEST(ForkExecvGetouterr, LetsTheChildReadTheStandardInput)
{
    TempDir const dir;
    writeFile(dir / "in", "text of the input");
    auto const run = tidyRun([&] {
        int const in = open((dir / "in").c_str(), O_RDONLY);
        dup2(in, 0);
        close(in);
        print(getouterr("cat"));
    });
    EXPECT_EQ(run.out, "0|text of the input||");
    EXPECT_EQ(run.status, 0);
}

TEST(ForkExecvGetouterr, NoticesTheChildsEndWithinSecondsWhileStreamsAreHeld)
{
    TempDir const dir;
    auto const run = tidyRun([&] {
        double const seconds = secondsOf([&] {
            print(getouterr("echo early; sleep 3000 & echo $! > " + dir / "holder" + "; exit 3"));
        });
        endProcessOf(dir / "holder");
        printf("%s", seconds > 0.9 && seconds < 300 ? "in time" : "late");
    });
    // Standard error had no event, so its text is null.
    EXPECT_EQ(run.out, "3|early\n|null|in time");
    EXPECT_EQ(run.status, 0);
}

TEST(ForkExecvGetouterr, GivesMinusOneForASignalledChildWithHeldStreams)
{
    TempDir const dir;
    auto const run = tidyRun([&] {
        print(getouterr("sleep 3000 & echo $! > " + dir / "holder" + "; kill -TERM $$"));
        endProcessOf(dir / "holder");
    });
    EXPECT_EQ(run.out, "-1|null|null|");
    EXPECT_EQ(run.status, 0);
}

TEST(ForkExecvGetouterr, OutlivesSeveralTimeoutsOfASlowChild)
{
    auto const run = printedOf("sleep 2.2; echo late; exit 6");
    EXPECT_EQ(run.out, "6|late\n||");
    EXPECT_EQ(run.status, 0);
}

TEST(ForkExecvGetouterr, WaitsForAChildThatClosesItsStreamsFirst)
{
    auto const run = printedOf("echo result; exec >&- 2>&-; sleep 0.2; exit 7");
    EXPECT_EQ(run.out, "7|result\n||");
    EXPECT_EQ(run.status, 0);
}

TEST(ForkExecvGetouterr, GivesMinusOneForAChildThatIsStopped)
{
    TempDir const dir;
    auto const run = tidyRun([&] {
        print(getouterr("echo $$ > " + dir / "pid" + "; exec >&- 2>&-; kill -STOP $$"));
        endProcessOf(dir / "pid");
    });
    EXPECT_EQ(run.out, "-1|||");
    EXPECT_EQ(run.status, 0);
}

TEST(ForkExecvGetouterr, GivesMinusOneWhenTheChildCannotBeWaitedFor)
{
    auto const run = tidyRun([] {
        signal(SIGCHLD, SIG_IGN);
        print(getouterr("echo result"));
    });
    EXPECT_EQ(run.out, "-1|result\n||");
    EXPECT_EQ(run.status, 0);
}

TEST(ForkExecvGetouterr, GoesOnAfterSignals)
{
    auto const run = tidyRun([] {
        signal(SIGALRM, [](int) {});
        itimerval const often = {{0, 20000}, {0, 20000}};
        setitimer(ITIMER_REAL, &often, nullptr);
        print(getouterr("sleep 0.3; echo late; exit 8"));
        itimerval const never = {};
        setitimer(ITIMER_REAL, &never, nullptr);
        printf("%d", errno);
    });
    EXPECT_EQ(run.out, "8|late\n||0");
}

// The poll with a time limit always fails here, so the child's end is noticed
// first.
TEST(ForkExecvGetouterr, ReadsWhatAnEndedChildLeftInItsPipes)
{
    auto const run = tidyRun([] {
        failSystemCallWith(SYS_poll, 2, 1000, EINTR);
        print(getouterr(flood(30000, 'a', 1) + "wait; echo complaint >&2; exit 9"));
    });
    EXPECT_EQ(run.out, "9|" + std::string(30000, 'a') + "|complaint\n|");
    EXPECT_EQ(run.status, 0);
}

TEST(ForkExecvGetouterr, WorksWithDescriptorsAboveAThousand)
{
    auto const run = tidyRun([] {
        rlimit limit = {};
        getrlimit(RLIMIT_NOFILE, &limit);
        limit.rlim_cur = limit.rlim_max;
        setrlimit(RLIMIT_NOFILE, &limit);
        auto const before = openDescriptors();
        for (int highest = 0; highest >= 0 && highest < 1100;)
            highest = dup(1);
        print(getouterr("echo result"));
        for (int const descriptor : openDescriptors())
            if (!before.contains(descriptor))
                close(descriptor);
    });
    EXPECT_EQ(run.out, "0|result\n||");
    EXPECT_EQ(run.status, 0);
}

TEST(ForkExecvGetouterr, PrintsAFailedReadClearsErrnoAndStillWaits)
{
    auto const run = tidyRun([] {
        // Starting a program never reads 4096 bytes.
        failSystemCallWith(SYS_read, 2, 4096, EIO);
        print(getouterr("exit 5"));
        printf("%d", errno);
    });
    EXPECT_EQ(run.out, "5|||0");
    EXPECT_EQ(run.err, "fork_exec*: read(pipe) failed: Input/output error\n"
                       "fork_exec*: read(pipe) failed: Input/output error\n");
    EXPECT_EQ(run.status, 0);
}

TEST(ForkExecvGetouterr, EndsTheProcessWhenItCannotMakeThePipes)
{
    auto const run = tidyRun([] {
        failSystemCall(SYS_pipe, EMFILE);
        failSystemCall(SYS_pipe2, EMFILE);
        getouterr("echo started");
        printf("went on\n");
    });
    EXPECT_EQ(run.status, 1);
    EXPECT_EQ(run.out, "fork_execv_getouterr: pipe() failed\n"
                       "System error 24: Too many open files\n");
}

TEST(ForkExecvGetouterr, EndsTheProcessWhenItCannotReadWithoutWaiting)
{
    auto const run = tidyRun([] {
        failSystemCallWith(SYS_fcntl, 1, F_SETFL, EPERM);
        getouterr("echo started");
        printf("went on\n");
    });
    EXPECT_EQ(run.status, 1);
    EXPECT_EQ(run.out, "fork_execv_getouterr: fcntl(O_NONBLOCK) failed\n"
                       "System error 1: Operation not permitted\n");
}

TEST(ForkExecvGetouterr, EndsTheProcessWithoutMemoryForTheOutput)
{
    for (int const step : {1, 3}) {
        auto const run = tidyRun([=] {
            AllocationFailure const failure(step);
            getouterr(flood(10000, 'a', 1) + "wait");
            printf("went on\n");
        });
        EXPECT_EQ(run.status, 1);
        EXPECT_EQ(run.out, "Cannot allocate memory\nSystem error 12: Cannot allocate memory\n");
        EXPECT_EQ(run.err, run.out);
    }
}

TEST(ForkExeclGetouterr, TakesAListOfAnyLength)
{
    auto const run = tidyRun([] {
        char* out = nullptr;
        char* err = nullptr;
        int const result =
            fork_execl_getouterr(&out, &err, shell, "sh", "-c", "echo $0 $#; exit 3", "zero",
                                 HUNDRED_ARGUMENTS, HUNDRED_ARGUMENTS, nullptr);
        print({result, CString(out), CString(err)});
    });
    EXPECT_EQ(run.out, "3|zero 200\n||");
    EXPECT_EQ(run.status, 0);
}

TEST(ForkExeclGetouterr, EndsTheProcessWithoutMemoryForTheList)
{
    auto const run = tidyRun([] {
        char* out = nullptr;
        char* err = nullptr;
        AllocationFailure const failure(1);
        static_cast<void>(fork_execl_getouterr(&out, &err, shell, "sh", nullptr));
        printf("went on\n");
    });
    EXPECT_EQ(run.status, 1);
    EXPECT_EQ(run.out, "malloc() failed: Cannot allocate memory\n"
                       "System error 12: Cannot allocate memory\n");
}
