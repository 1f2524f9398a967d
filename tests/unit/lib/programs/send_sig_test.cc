#include "lib/programs/send_sig.h"

#include "support/child_run.h"
#include "support/host_test.h"
#include "support/report.h"
#include "support/stand_in.h"
#include "support/temp_dir.h"
#include "support/tidy_run.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <cerrno>
#include <csignal>
#include <cstdio>
#include <cstdlib>
#include <filesystem>
#include <functional>
#include <string>
#include <utility>

#include <sys/wait.h>
#include <unistd.h>

using ::testing::MatchesRegex;

namespace {

// A sleeping process with its own name and arguments. The destructor ends it.
class Sleeper
{
public:
    explicit Sleeper(std::string const& name, char const* title = nullptr)
    {
        std::string const program = dir / name;
        std::filesystem::copy_file("/bin/sleep", program);
        pid = fork();
        if (pid < 0)
            abort();
        if (pid == 0) {
            execl(program.c_str(), title ? title : program.c_str(), "60", nullptr);
            _exit(127);
        }
        while (comm() != name + "\n")
            usleep(1000);
    }
    ~Sleeper()
    {
        if (pid > 1 && kill(pid, SIGKILL) == 0)
            ended();
    }
    Sleeper(Sleeper const&) = delete;
    Sleeper& operator=(Sleeper const&) = delete;

    // The signal that ended the process.
    int ended()
    {
        int status = 0;
        waitpid(std::exchange(pid, -1), &status, 0);
        return WIFSIGNALED(status) ? WTERMSIG(status) : 0;
    }
    bool runs() const { return waitpid(pid, nullptr, WNOHANG) == 0; }

    pid_t pid = -1;

private:
    std::string comm() const { return readFile("/proc/" + std::to_string(pid) + "/comm"); }

    TempDir const dir;
};

using SendSigOnHost = HostTest;
using IsRunningOnHost = HostTest;
using IsRunningPidFileOnHost = HostTest;

// ps is the host's own or a stand-in.
class KillByFieldOnHost : public HostTest
{
protected:
    void TearDown() override { ps.remove(); }

    // The result of a call and its output on both streams.
    static std::string outcomeOf(std::function<int()> const& call)
    {
        ChildRun const run = inChild([&] { return call() + 10; });
        EXPECT_EQ(run.out, run.err);
        return std::to_string(run.status - 10) + "|" + run.err;
    }

    StandIn ps{"/bin/ps"};
};

} // namespace

TEST_F(SendSigOnHost, SignalsEveryProcessOfTheName)
{
    Sleeper first("mvk-sleeper");
    Sleeper second("mvk-sleeper");
    Sleeper const longer("mvk-sleeper2");
    Sleeper const other("x-mvk-sleeper");
    EXPECT_EQ(send_sig("mvk-sleeper", SIGTERM), 0);
    EXPECT_EQ(first.ended(), SIGTERM);
    EXPECT_EQ(second.ended(), SIGTERM);
    EXPECT_TRUE(longer.runs());
    EXPECT_TRUE(other.runs());
}

TEST_F(SendSigOnHost, SendsTheSignalThatIsAskedFor)
{
    Sleeper sleeper("mvk-sleeper");
    EXPECT_EQ(send_sig("mvk-sleeper", 0), 0);
    EXPECT_TRUE(sleeper.runs());
    EXPECT_EQ(send_sig("mvk-sleeper", SIGUSR1), 0);
    EXPECT_EQ(sleeper.ended(), SIGUSR1);
}

TEST_F(SendSigOnHost, DoesNothingInSilenceWhenThereIsNoSuchProcess)
{
    ChildRun const run = tidyRun([] {
        if (send_sig("mvk-sleeper", SIGTERM) != 0)
            fputs("failed", stderr);
    });
    EXPECT_EQ(run.status, 0);
    EXPECT_EQ(run.out + run.err, "");
}

TEST_F(SendSigOnHost, GivesMinusOneWhenTheShellsEndIsLost)
{
    ChildRun const run = inChild([] {
        signal(SIGCHLD, SIG_IGN); // so that children cannot be waited for
        return send_sig("mvk-sleeper", SIGTERM) == -1 && is_running("mvk-sleeper") == -1 ? 0 : 1;
    });
    EXPECT_EQ(run.status, 0);
}

// The cut removes the closing quote, so the shell refuses the command.
TEST_F(SendSigOnHost, CutsALongCommand)
{
    std::string const name(5000, 'x');
    ChildRun const run = inChild([&] {
        return send_sig(name.c_str(), SIGTERM) != 0 && is_running(name.c_str()) != 0 ? 0 : 1;
    });
    EXPECT_EQ(run.status, 0);
    EXPECT_NE(run.err, "");
}

TEST_F(IsRunningOnHost, FindsAProcessByTheNameOfItsProgram)
{
    ChildRun const run = tidyRun([] {
        if (is_running("mvk-sleeper") != 1)
            fputs("found", stderr);
    });
    EXPECT_EQ(run.status, 0);
    EXPECT_EQ(run.out + run.err, "");
    Sleeper const sleeper("mvk-sleeper");
    EXPECT_EQ(is_running("mvk-sleeper"), 0);
    EXPECT_EQ(is_running("mvk-sleepe"), 1);
    EXPECT_EQ(is_running("vk-sleeper"), 1);
}

TEST_F(IsRunningOnHost, FindsAProcessWithoutAPath)
{
    Sleeper const sleeper("mvk-sleeper", "titled");
    EXPECT_EQ(is_running("titled"), 0);
    EXPECT_EQ(is_running("mvk-sleeper"), 1);
}

// ps shows processes like this when it cannot read their arguments. Some programs do it themselves.
TEST_F(IsRunningOnHost, FindsANameInBrackets)
{
    for (char const* const title : {"[bracketed]", "(bracketed)", "<bracketed>", "x[bracketed)"}) {
        Sleeper const sleeper("mvk-sleeper", title);
        EXPECT_EQ(is_running("bracketed"), 0) << title;
    }
    Sleeper const sleeper("mvk-sleeper", "{bracketed}");
    EXPECT_EQ(is_running("bracketed"), 1);
}

TEST_F(IsRunningOnHost, TakesNoNoticeOfALineThatHoldsGrep)
{
    Sleeper const sleeper("mvk-sleeper", "mvk-grep-er");
    EXPECT_EQ(is_running("mvk-grep-er"), 1);
}

TEST_F(IsRunningOnHost, CutsALongCommand)
{
    ChildRun const run = inChild([] { return is_running(std::string(5000, 'x').c_str()); });
    EXPECT_EQ(run.status, 2) << "the shell's, for a quotation without an end";
    EXPECT_NE(run.err, "");
}

TEST_F(KillByFieldOnHost, CountsWithoutTouchingBySignalZero)
{
    Sleeper const first("mvk-sleeper");
    Sleeper const second("mvk-sleeper");
    EXPECT_EQ(outcomeOf([] { return kill_by_field("comm", "mvk-sl", 0); }), "2|");
    EXPECT_TRUE(first.runs());
    EXPECT_TRUE(second.runs());
    EXPECT_EQ(outcomeOf([] { return kill_by_field("comm", "mvk-no", 0); }), "0|");
}

TEST_F(KillByFieldOnHost, SignalsByAnyPartOfTheField)
{
    Sleeper first("mvk-one", "of the.class.Name x");
    Sleeper second("mvk-two", "the.class.Name");
    Sleeper const other("mvk-three", "the class.Name");
    EXPECT_EQ(outcomeOf([] { return kill_by_field("command", "the.class.Name", SIGUSR1); }), "2|");
    EXPECT_EQ(first.ended(), SIGUSR1);
    EXPECT_EQ(second.ended(), SIGUSR1);
    EXPECT_TRUE(other.runs());
}

TEST_F(KillByFieldOnHost, CountsALineOnce)
{
    Sleeper const sleeper("mvk-sleeper", "mvk-title mvk-title mvk-title");
    EXPECT_EQ(outcomeOf([] { return kill_by_field("args", "mvk-title", 0); }), "1|");
}

TEST_F(KillByFieldOnHost, SeesTheLineOfItsOwnPs)
{
    // It has ended by then.
    EXPECT_THAT(outcomeOf([] { return kill_by_field("args", "-Aww -o pid,args", 0); }),
                MatchesRegex("1.send_signal_field\\(\\): failed to kill [0-9]+: No such process\n"
                             "System error 3: No such process\n"));
    EXPECT_EQ(outcomeOf([] { return kill_by_field("comm", "-Aww -o", 0); }), "0|");
}

TEST_F(KillByFieldOnHost, AsksPsForThePidAndTheField)
{
    ps.prepare();
    ps.run("exit 0");
    EXPECT_EQ(outcomeOf([] { return kill_by_field("command", "x", 0); }), "0|");
    EXPECT_EQ(ps.journal(), "-Aww -o pid,command\n");
}

TEST_F(KillByFieldOnHost, ReportsALineWithoutAPid)
{
    EXPECT_EQ(outcomeOf([] { return kill_by_field("comm", "COMMAND", SIGTERM); }),
              "0|send_signal_field(): malformed ps output:     PID COMMAND\n");
    ps.prepare();
    ps.run("echo; echo 'x needle'; echo 'needle'; echo ' -1 needle'; echo '0 needle'; "
           "echo '4294967297 needle'; printf 'last needle'");
    std::string const text = "send_signal_field(): malformed ps output: ";
    EXPECT_EQ(outcomeOf([] { return kill_by_field("comm", "needle", SIGTERM); }),
              "0|" + text + "x needle\n" + text + "needle\n" + text + " -1 needle\n" + text +
                  "0 needle\n" + text + "4294967297 needle\n" + text + "last needle\n");
}

TEST_F(KillByFieldOnHost, CountsAProcessThatItCannotSignal)
{
    Sleeper sleeper("mvk-sleeper");
    pid_t const gone = sleeper.pid;
    kill(gone, SIGKILL);
    sleeper.ended();
    ps.prepare();
    ps.run("echo ' " + std::to_string(gone) + " needle'");
    EXPECT_EQ(outcomeOf([] { return kill_by_field("comm", "needle", SIGTERM); }),
              "1|" + withErrno("send_signal_field(): failed to kill " + std::to_string(gone) +
                                   ": No such process",
                               ESRCH));
}

TEST_F(KillByFieldOnHost, CountsButNeverSignalsTheFirstProcess)
{
    ps.prepare();
    ps.run("echo '    1 needle'");
    EXPECT_EQ(outcomeOf([] { return kill_by_field("comm", "needle", 0); }), "1|");
    EXPECT_EQ(
        outcomeOf([] { return kill_by_field("comm", "needle", SIGURG); }),
        "1|" + withErrno("send_signal_field(): failed to kill 1: Operation not permitted", EPERM));
}

TEST_F(KillByFieldOnHost, TakesAnEmptyNeedleAsPartOfEveryLine)
{
    ps.prepare();
    ps.run("echo ' 1 a'; echo ' 1 b'");
    EXPECT_EQ(outcomeOf([] { return kill_by_field("comm", "", 0); }), "2|");
}

TEST_F(KillByFieldOnHost, ReportsAPsThatFails)
{
    ps.prepare();
    ps.run("echo '1 needle'; printf '2 \\033[2J\\n'; exit 3");
    ChildRun const run =
        inChild([] { return kill_by_field("comm", "needle", SIGTERM) == -1 ? 0 : 1; });
    EXPECT_EQ(run.status, 0);
    EXPECT_EQ(run.out, "send_signal_field(): /bin/ps failed\n");
    EXPECT_EQ(run.err, "1 needle\n2 \\x1b[2J\n" + run.out);
}

TEST(GetPidByPidfile, GivesTheNumberAtTheBeginning)
{
    TempDir const dir;
    for (char const* const text : {"1234", "1234\n", " \n 1234 \n", "1234x", "1234 5"}) {
        writeFile(dir / "pid", text);
        EXPECT_EQ(get_pid_by_pidfile((dir / "pid").c_str()), 1234) << text;
    }
}

TEST(GetPidByPidfile, GivesMinusOneInSilenceForAMissingFile)
{
    TempDir const dir;
    ChildRun const run =
        inChild([&] { return get_pid_by_pidfile((dir / "pid").c_str()) == -1 ? 0 : 1; });
    EXPECT_EQ(run.status, 0);
    EXPECT_EQ(run.out + run.err, "");
}

TEST(GetPidByPidfile, EndsTheProcessForAFileWithoutAPid)
{
    TempDir const dir;
    std::string const file = dir / "pid";
    for (char const* const text : {"", "x1", "\n", "99999999999", "99999999999999999999999"}) {
        writeFile(file, text);
        ChildRun const run = inChild([&] { return get_pid_by_pidfile(file.c_str()); });
        EXPECT_EQ(run.status, 1) << text;
        EXPECT_EQ(run.err.substr(0, run.err.find('\n')), "read from pidfile '" + file + "' failed");
        EXPECT_EQ(run.out, run.err);
    }
}

TEST(GetPidByPidfile, EndsTheProcessForAnUnreadableFile)
{
    TempDir const dir;
    writeFile(dir / "pid", "1234");
    std::string const below = dir / "pid/below";
    ChildRun run = inChild([&] { return get_pid_by_pidfile(below.c_str()); });
    EXPECT_EQ(run.status, 1);
    EXPECT_EQ(run.err,
              withErrno("open() pidfile '" + below + "' failed: Not a directory", ENOTDIR));
    EXPECT_EQ(run.out, run.err);
    run = inChild([&] { return get_pid_by_pidfile(dir.path().c_str()); });
    EXPECT_EQ(run.status, 1);
    EXPECT_EQ(run.err, withErrno("read from pidfile '" + dir.path() + "' failed", EISDIR));
}

TEST_F(IsRunningPidFileOnHost, TellsWhetherTheProcessIsThere)
{
    TempDir const dir;
    std::string const file = dir / "pid";
    EXPECT_NE(is_running_pid_file(file.c_str()), 0);
    Sleeper sleeper("mvk-sleeper");
    writeFile(file, std::to_string(sleeper.pid) + "\n");
    EXPECT_EQ(is_running_pid_file(file.c_str()), 0);
    kill(sleeper.pid, SIGKILL);
    sleeper.ended();
    EXPECT_NE(is_running_pid_file(file.c_str()), 0);
    writeFile(file, "0\n");
    EXPECT_NE(is_running_pid_file(file.c_str()), 0);
}
