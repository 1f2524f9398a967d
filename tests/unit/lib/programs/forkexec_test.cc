#include "lib/programs/forkexec.h"

#include "support/shell_script.h"
#include "support/syscall_faults.h"
#include "support/temp_dir.h"
#include "support/tidy_run.h"

#include <gtest/gtest.h>

#include <array>
#include <csignal>
#include <cstdio>
#include <string>

#include <fcntl.h>
#include <sys/wait.h>
#include <unistd.h>

namespace {

constexpr char missing[] = "/nonexistent/program";

int waitStatus(pid_t child)
{
    int status = 0;
    return waitpid(child, &status, 0) == child ? status : -1;
}

int exitStatus(pid_t child)
{
    int const status = waitStatus(child);
    return WIFEXITED(status) ? WEXITSTATUS(status) : -1;
}

// Starts a script on the standard streams, waits for it, and returns its exit status.
int runOnStandardStreams(std::string const& text)
{
    return exitStatus(fork_execv_pipes(0, 1, 2, shell, Script(text).args()));
}

void printResult(int result)
{
    printf("[%d]", result);
    fflush(stdout);
}

} // namespace

TEST(ForkExecvPipes, StartsTheChildAndDoesNotWait)
{
    auto const run = tidyRun([] {
        pid_t const child = fork_execv_pipes(0, 1, 2, shell, Script("sleep 0.2; exit 7").args());
        printResult(waitpid(child, nullptr, WNOHANG));
        printResult(exitStatus(child));
    });
    EXPECT_EQ(run.out, "[0][7]");
    EXPECT_EQ(run.status, 0);
}

TEST(ForkExecvPipes, MakesTheGivenDescriptorsTheStandardStreams)
{
    TempDir const dir;
    writeFile(dir / "in", "text of the input");
    auto const run = tidyRun([&] {
        int const in = open((dir / "in").c_str(), O_RDONLY);
        int const out = creat((dir / "out").c_str(), 0600);
        int const err = creat((dir / "err").c_str(), 0600);
        printResult(exitStatus(
            fork_execv_pipes(in, out, err, shell, Script("cat; echo complaint >&2").args())));
        for (int const given : {in, out, err})
            close(given);
    });
    EXPECT_EQ(run.out, "[0]");
    EXPECT_EQ(run.status, 0);
    EXPECT_EQ(readFile(dir / "out"), "text of the input");
    EXPECT_EQ(readFile(dir / "err"), "complaint\n");
}

TEST(ForkExecvPipes, TakesMinusOneForTheNullDeviceInBothDirections)
{
    TempDir const dir;
    Script const script("for n in 0 1 2; do t=\"$t$(readlink /proc/$$/fd/$n) \"; done; "
                        "echo \"$t\" > " +
                        dir / "streams" + "; echo x >&0 && cat <&1 && cat <&2 && exit 4");
    auto const run = tidyRun(
        [&] { printResult(exitStatus(fork_execv_pipes(-1, -1, -1, shell, script.args()))); });
    EXPECT_EQ(run.out, "[4]");
    EXPECT_EQ(run.status, 0);
    EXPECT_EQ(readFile(dir / "streams"), "/dev/null /dev/null /dev/null \n");
}

TEST(ForkExecvPipes, ConnectsTheNullDeviceForAClosedStream)
{
    auto const run = tidyRun([] {
        close(0);
        pid_t const child =
            fork_execv_pipes(-1, 1, 2, shell, Script("readlink /proc/$$/fd/0").args());
        waitStatus(child);
        dup2(1, 0);
    });
    EXPECT_EQ(run.out, "/dev/null\n");
    EXPECT_EQ(run.status, 0);
}

TEST(ForkExecvPipes, LeavesAStreamInItsOwnPlaceAlone)
{
    auto const run = tidyRun([] { runOnStandardStreams("echo result; echo complaint >&2"); });
    EXPECT_EQ(run.out, "result\n");
    EXPECT_EQ(run.err, "complaint\n");
    EXPECT_EQ(run.status, 0);
}

TEST(ForkExecvPipes, ClosesEveryOtherDescriptorInTheChild)
{
    auto const run = tidyRun([] {
        for (int const extra : {20, 50, 300})
            dup2(1, extra);
        runOnStandardStreams("for n in 0 1 2 20 50 300; do "
                             "if [ -e /proc/$$/fd/$n ]; then echo $n; fi; done");
        for (int const extra : {20, 50, 300})
            close(extra);
    });
    EXPECT_EQ(run.out, "0\n1\n2\n");
    EXPECT_EQ(run.status, 0);
}

TEST(ForkExecvPipes, InheritsTheEnvironment)
{
    auto const run = tidyRun([] {
        setenv("FORKEXEC_TEST", "from the parent", 1);
        runOnStandardStreams("echo $FORKEXEC_TEST");
    });
    EXPECT_EQ(run.out, "from the parent\n");
}

TEST(ForkExecvPipes, ReportsAMissingProgramOnTheChildsStandardError)
{
    TempDir const dir;
    auto const run = tidyRun([&] {
        int const err = creat((dir / "err").c_str(), 0600);
        printResult(exitStatus(fork_execv_pipes(0, 1, err, missing, Script("").args())));
        close(err);
    });
    EXPECT_EQ(run.out, "[255]");
    EXPECT_EQ(run.err, "");
    EXPECT_EQ(run.status, 0);
    EXPECT_EQ(readFile(dir / "err"), "fork_execv: execv(\"/nonexistent/program\") failed: "
                                     "No such file or directory\n");
}

TEST(ForkExecvPipes, DoesNotStartTheProgramWithoutItsStreams)
{
    using Streams = std::array<int, 3>;
    for (Streams const& streams : {Streams{999, 1, 2}, Streams{0, 999, 2}, Streams{0, 1, 999}}) {
        auto const run = tidyRun([&] {
            printResult(exitStatus(fork_execv_pipes(streams[0], streams[1], streams[2], shell,
                                                    Script("echo started").args())));
        });
        EXPECT_EQ(run.out, "[255]");
        EXPECT_EQ(run.err, "fork_execv: dup() failed: Bad file descriptor\n");
        EXPECT_EQ(run.status, 0);
    }
}

TEST(ForkExecvPipes, DoesNotStartTheProgramWithoutTheNullDevice)
{
    auto const run = tidyRun([] {
        failSystemCallWith(SYS_openat, 2, O_RDWR, EACCES);
        printResult(exitStatus(fork_execv_pipes(-1, 1, 2, shell, Script("echo started").args())));
    });
    EXPECT_EQ(run.out, "[255]");
    EXPECT_EQ(run.err, "fork_execv: dup() failed: Permission denied\n");
}

TEST(ForkExecvPipes, PrintsTheParentsBufferedTextOnceWhenTheChildFails)
{
    auto const run = tidyRun([] {
        printf("once ");
        waitStatus(fork_execv_pipes(0, 1, 2, missing, Script("").args()));
    });
    EXPECT_EQ(run.out, "once ");
}

TEST(ForkExecvPipes, EndsTheProcessWhenItCannotFork)
{
    auto const run = tidyRun([] {
        failFork(EAGAIN);
        fork_execv_pipes(0, 1, 2, shell, Script("echo started").args());
        printf("went on\n");
    });
    EXPECT_EQ(run.status, 1);
    EXPECT_EQ(run.out, "fork_execv_pipes: fork() failed\n"
                       "System error 11: Resource temporarily unavailable\n");
    EXPECT_EQ(run.err, run.out);
}

TEST(ForkExeclPipes, MakesTheVectorFromTheList)
{
    auto const run = tidyRun([] {
        waitStatus(fork_execl_pipes(0, 1, 2, shell, "my sh", "-c", "echo \"$0|$1|$2\"", "zero",
                                    "one two", "", nullptr));
    });
    EXPECT_EQ(run.out, "zero|one two|\n");
    EXPECT_EQ(run.status, 0);
}

TEST(ForkExeclPipes, CutsTheListAtAHundredEntries)
{
    auto const run = tidyRun([] {
        waitStatus(fork_execl_pipes(0, 1, 2, shell, "sh", "-c", "echo $#", "sh", HUNDRED_ARGUMENTS,
                                    nullptr));
    });
    EXPECT_EQ(run.out, "96\n");
}

TEST(ForkExecv, GivesZeroForAnyExitAndAMissingProgram)
{
    auto const run = tidyRun([] {
        printResult(fork_execv(shell, "sh", "-c", "exit 0", nullptr));
        printResult(fork_execv(shell, "sh", "-c", "exit 3", nullptr));
        printResult(fork_execv(missing, "program", nullptr));
    });
    EXPECT_EQ(run.out, "[0][0][0]");
    EXPECT_EQ(run.err, "");
    EXPECT_EQ(run.status, 0);
}

TEST(ForkExecv, GivesOneForAChildThatDiedByASignal)
{
    auto const run =
        tidyRun([] { printResult(fork_execv(shell, "sh", "-c", "kill -TERM $$", nullptr)); });
    EXPECT_EQ(run.out, "[1]");
    EXPECT_EQ(run.status, 0);
}

TEST(ForkExecv, KeepsWaitingForAStoppedChild)
{
    auto const run = tidyRun([] {
        printResult(fork_execv(shell, "sh", "-c",
                               "for i in $(seq 1000); do"
                               " grep -q '^State:.T' /proc/$$/status && break; sleep 0.01; "
                               "done && kill -CONT $$ & kill -STOP $$; kill -TERM $$",
                               nullptr));
    });
    EXPECT_EQ(run.out, "[1]");
    EXPECT_EQ(run.status, 0);
}

TEST(ForkExecv, ConnectsAllStreamsToTheNullDevice)
{
    TempDir const dir;
    std::string const script = "for n in 0 1 2; do t=\"$t$(readlink /proc/$$/fd/$n) \"; done; "
                               "echo \"$t\" > " +
                               dir / "streams" + "; echo result; echo complaint >&2";
    auto const run = tidyRun([&] { fork_execv(shell, "sh", "-c", script.c_str(), nullptr); });
    EXPECT_EQ(readFile(dir / "streams"), "/dev/null /dev/null /dev/null \n");
    EXPECT_EQ(run.out, "");
    EXPECT_EQ(run.err, "");
}

TEST(ForkExecv, CutsTheListAtAHundredEntries)
{
    TempDir const dir;
    std::string const script = "echo $# > " + dir / "count";
    auto const run = tidyRun(
        [&] { fork_execv(shell, "sh", "-c", script.c_str(), "sh", HUNDRED_ARGUMENTS, nullptr); });
    EXPECT_EQ(readFile(dir / "count"), "96\n");
    EXPECT_EQ(run.status, 0);
}

TEST(ForkExecv, TakesWhicheverChildEndsFirst)
{
    auto const run = tidyRun([] {
        pid_t const other = fork_execv_pipes(0, 1, 2, shell, Script("kill -KILL $$").args());
        siginfo_t info = {};
        waitid(P_PID, static_cast<id_t>(other), &info, WEXITED | WNOWAIT);
        printResult(fork_execv(shell, "sh", "-c", "sleep 0.2; exit 6", nullptr));
        int status = 0;
        waitpid(-1, &status, 0); // the child of that call, which has not been waited for
        printResult(WEXITSTATUS(status));
    });
    EXPECT_EQ(run.out, "[1][6]");
    EXPECT_EQ(run.status, 0);
}

TEST(DoExec, GivesTheWaitStatusAsItIs)
{
    auto const run = tidyRun([] {
        printResult(do_exec(shell, Script("exit 0").args()));
        printResult(do_exec(shell, Script("exit 3").args()));
        printResult(do_exec(shell, Script("kill -KILL $$").args()));
    });
    EXPECT_EQ(run.out, "[0][768][9]");
    EXPECT_EQ(run.status, 0);
}

TEST(DoExec, RunsOnTheCallersStreamsWithTheCallersDescriptors)
{
    auto const run = tidyRun([] {
        dup2(1, 50);
        do_exec(shell, Script("echo result; echo complaint >&2; "
                              "[ -e /proc/$$/fd/50 ] && echo inherited")
                           .args());
        close(50);
    });
    EXPECT_EQ(run.out, "result\ninherited\n");
    EXPECT_EQ(run.err, "complaint\n");
    EXPECT_EQ(run.status, 0);
}

TEST(DoExec, SeesAMissingProgramAsExitStatus255AndPrintsNothing)
{
    auto const run = tidyRun([] {
        printf("once ");
        printResult(do_exec(missing, Script("").args()));
    });
    EXPECT_EQ(run.out, "once [65280]");
    EXPECT_EQ(run.err, "");
    EXPECT_EQ(run.status, 0);
}

TEST(DoExec, GivesMinusOneWhenTheChildCannotBeWaitedFor)
{
    auto const run = tidyRun([] {
        signal(SIGCHLD, SIG_IGN);
        printResult(do_exec(shell, Script("exit 0").args()));
    });
    EXPECT_EQ(run.out, "[-1]");
    EXPECT_EQ(run.err, "");
}

TEST(DoExec, EndsTheProcessWhenItCannotFork)
{
    auto const run = tidyRun([] {
        failFork(EAGAIN);
        do_exec(shell, Script("echo started").args());
        printf("went on\n");
    });
    EXPECT_EQ(run.status, 1);
    EXPECT_EQ(run.out, "Cannot fork():\nResource temporarily unavailable\n"
                       "System error 11: Resource temporarily unavailable\n");
}
