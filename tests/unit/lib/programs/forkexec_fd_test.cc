#include "lib/programs/forkexec.h"

#include "support/shell_script.h"
#include "support/syscall_faults.h"
#include "support/temp_dir.h"
#include "support/tidy_run.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <algorithm>
#include <csignal>
#include <cstdio>
#include <cstdlib>
#include <string>
#include <utility>

#include <fcntl.h>
#include <unistd.h>

using ::testing::MatchesRegex;

namespace {

// Runs a program on two files, apart from the test's own streams.
struct Files
{
    TempDir dir;
    std::string in = dir / "in";
    std::string out = dir / "out";

    int run(char const* path, char const* const* args) const
    {
        int const fd_in = open(in.c_str(), O_RDONLY | O_CREAT, 0600);
        int const fd_out = open(out.c_str(), O_WRONLY | O_CREAT, 0600);
        int const result = fork_execv_fd(fd_in, fd_out, path, args);
        close(fd_in);
        close(fd_out);
        return result;
    }

    ChildRun runScript(std::string const& text) const
    {
        return tidyRun([&] { printf("[%d]", run(shell, Script(text).args())); });
    }
};

} // namespace

TEST(ForkExecvFd, ConnectsTheGivenDescriptors)
{
    Files const files;
    writeFile(files.in, "text of the input");
    auto const run = files.runScript("cat; exit 0");
    EXPECT_EQ(run.out, "[0]");
    EXPECT_EQ(run.err, "");
    EXPECT_EQ(run.status, 0);
    EXPECT_EQ(readFile(files.out), "text of the input");
}

TEST(ForkExecvFd, GivesTheExitStatus)
{
    for (int const status : {1, 42, 255})
        EXPECT_EQ(Files().runScript("exit " + std::to_string(status)).out,
                  "[" + std::to_string(status) + "]");
}

TEST(ForkExecvFd, ReportsWhatTheProgramPrintsOnItsStandardError)
{
    auto const run = Files().runScript("echo one >&2; sleep 0.2; printf 'two %%s' >&2; exit 3");
    EXPECT_EQ(run.err, "one\ntwo %s\n");
    EXPECT_EQ(run.out, "one\ntwo %s\n[3]");
    EXPECT_EQ(run.status, 0);
}

TEST(ForkExecvFd, ReportsInPiecesOf4095BytesAtMost)
{
    Files const files;
    std::string const text = files.dir / "text";
    writeFile(text, std::string(4095, 'a') + std::string(4095, 'b') + "end");
    auto const pieces = files.runScript("dd bs=8193 status=none if=" + text + " >&2");
    EXPECT_EQ(pieces.err, std::string(4095, 'a') + "\n" + std::string(4095, 'b') + "\nend\n");
    EXPECT_EQ(pieces.out, pieces.err + "[0]");
    EXPECT_EQ(pieces.status, 0);
}

TEST(ForkExecvFd, ReportsMegabytes)
{
    auto const run = Files().runScript("head -c 2000000 /dev/zero | tr '\\0' a >&2");
    EXPECT_EQ(std::count(run.err.begin(), run.err.end(), 'a'), 2000000);
    EXPECT_EQ(run.status, 0);
}

TEST(ForkExecvFd, RefusesStandardInputAndOutputInTheirOwnPlaces)
{
    for (auto const& [in, out] : {std::pair(0, 7), std::pair(7, 1), std::pair(0, 1)}) {
        auto const run = tidyRun([in = in, out = out] {
            printf("[%d]", fork_execv_fd(in, out, shell, Script("echo started >&2").args()));
        });
        EXPECT_EQ(run.err, "values 0,1,2 not allowed for variables fd_in & fd_out\n");
        EXPECT_EQ(run.out, run.err + "[-1]");
        EXPECT_EQ(run.status, 0);
    }
}

TEST(ForkExecvFd, StartsNoProgramOnAWrongOrClosedDescriptor)
{
    for (auto const& [in, out] : {std::pair(1, 7), std::pair(2, 7), std::pair(7, 0),
                                  std::pair(7, 2), std::pair(-1, 7), std::pair(7, 999)}) {
        auto const run = tidyRun([in = in, out = out] {
            int const null = open("/dev/null", O_RDWR);
            dup2(null, 7);
            printf("[%d]", fork_execv_fd(in, out, shell, Script("echo started >&2").args()));
            close(null);
            close(7);
        });
        EXPECT_EQ(run.err, "fork_execv: dup() failed: Bad file descriptor\n");
        EXPECT_EQ(run.out, run.err + "[255]");
        EXPECT_EQ(run.status, 0);
    }
}

TEST(ForkExecvFd, ReportsAMissingProgram)
{
    auto const run = tidyRun([] {
        printf("once ");
        printf("[%d]", Files().run("/nonexistent/program", Script("").args()));
    });
    EXPECT_EQ(run.err, "Error occured during execv():\nNo such file or directory.\n");
    EXPECT_EQ(run.out, "once " + run.err + "[255]");
    EXPECT_EQ(run.status, 0);
}

TEST(ForkExecvFd, SuspectsAMissingNullInABadVector)
{
    auto const run = tidyRun([] {
        auto const* const nowhere = reinterpret_cast<char const* const*>(8);
        printf("[%d]", Files().run(shell, nowhere));
    });
    EXPECT_EQ(run.err, "Error occured during execv():\nBad address, possible reason - NULL "
                       "parameter is absent in util_exec(path, arg1, arg2, NULL) call.\n");
    EXPECT_EQ(run.out, run.err + "[255]");
}

TEST(ForkExecvFd, ReportsAChildThatDiedByASignal)
{
    auto const run = Files().runScript("kill -TERM $$");
    EXPECT_THAT(run.err, MatchesRegex("The child process with pid [0-9]+ killed by signal 15\n"));
    EXPECT_EQ(run.out, run.err + "[-1]");
    EXPECT_EQ(run.status, 0);
}

TEST(ForkExecvFd, ReportsAChildThatIsStopped)
{
    Files const files;
    auto const run = tidyRun([&] {
        Script const script("echo $$; exec 2>&-; kill -STOP $$");
        printf("[%d]", files.run(shell, script.args()));
        endProcessOf(files.out);
    });
    EXPECT_EQ(run.err, "The child process with pid " +
                           std::to_string(std::stoi(readFile(files.out))) + " stopped by signal " +
                           std::to_string(SIGSTOP) + "\n");
    EXPECT_EQ(run.out, run.err + "[-1]");
    EXPECT_EQ(run.status, 0);
}

TEST(ForkExecvFd, ReportsAChildThatCannotBeWaitedFor)
{
    auto const run = tidyRun([] {
        signal(SIGCHLD, SIG_IGN);
        printf("[%d]", Files().run(shell, Script("exit 0").args()));
    });
    EXPECT_THAT(run.err, MatchesRegex("Error occured during waiting the child process with pid: "
                                      "[0-9]+: No child processes\n\n"
                                      "System error 10: No child processes\n"));
    EXPECT_EQ(run.out, run.err + "[-1]");
}

TEST(ForkExecvFd, InheritsTheOtherDescriptorsButNotThePipe)
{
    Files const files;
    auto const run = tidyRun([&] {
        dup2(1, 50);
        Script const script("p=$(readlink /proc/$$/fd/2); ls -l /proc/$$/fd | grep -cF $p; "
                            "[ -e /proc/$$/fd/50 ] && echo inherited");
        files.run(shell, script.args());
        close(50);
    });
    EXPECT_EQ(readFile(files.out), "1\ninherited\n");
    EXPECT_EQ(run.status, 0);
}

TEST(ForkExecvFd, EndsTheProcessWithoutAForkOrAPipe)
{
    auto const no_fork = tidyRun([] {
        failFork(EAGAIN);
        fork_execv_fd(7, 8, shell, Script("echo started").args());
    });
    EXPECT_EQ(no_fork.status, 1);
    EXPECT_EQ(no_fork.out, "Error occured during fork():\nResource temporarily unavailable\n"
                           "System error 11: Resource temporarily unavailable\n");
    auto const no_pipe = tidyRun([] {
        failSystemCall(SYS_pipe, EMFILE);
        failSystemCall(SYS_pipe2, EMFILE);
        fork_execv_fd(7, 8, shell, Script("echo started").args());
    });
    EXPECT_EQ(no_pipe.status, 1);
    EXPECT_EQ(no_pipe.out, "Error occured during fork():\nToo many open files\n"
                           "System error 24: Too many open files\n");
}
