#include "process/process_launch.h"

#include "build_paths.h"
#include "support/call_faults.h"
#include "support/child_run.h"
#include "support/launch_test.h"
#include "support/temp_dir.h"
#include "util/errors.h"
#include "util/uerr.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <iostream>
#include <stdexcept>
#include <string>
#include <vector>

using namespace orvek::process;
using orvek::FdOwner;
using orvek::SystemError;
using ::testing::HasSubstr, ::testing::Not, ::testing::StartsWith;

namespace {

// The arguments of a launch, with the values that most tests use.
struct Launch
{
    std::vector<char const*> argv = {CHILD_MAIN};
    char const* path = CHILD_MAIN;
    char const* cwd = nullptr;
    char const* const* env = nullptr;
    bool closeDescriptors = false;
    bool searchPath = false;
    bool newSession = false;
    boost::function<void()> childSetup = {};
    int in = DevNull;
    int out = Inherit;
    int err = Inherit;

    explicit Launch(std::vector<char const*> const& arguments)
    {
        argv.insert(argv.end(), arguments.begin(), arguments.end());
        argv.push_back(nullptr);
    }

    ProcessLaunch start() const
    {
        return ProcessLaunch(argv.data(), path, cwd, env, closeDescriptors, searchPath, newSession,
                             childSetup, in, out, err);
    }
};

// The standard output of a launch that must succeed.
std::string outputOf(Launch launch)
{
    launch.out = Capture;
    ProcessLaunch child = launch.start();
    child.waitExec();
    std::string const text = readAll(child.stdoutPipe.fd);
    EXPECT_EQ(child.waitExit(), 0);
    return text;
}

// Starts a child that must fail before exec with this status. Returns the exception's text.
template<class E>
std::string failureOf(Launch const& launch, int expected_status)
{
    ProcessLaunch child = launch.start();
    std::string const text = textOf<E>([&] { child.waitExec(); });
    EXPECT_EQ(child.waitExit(), W_EXITCODE(expected_status, 0));
    return text;
}

class ProcessLaunchTest : public LaunchTest
{
};

} // namespace

TEST_F(ProcessLaunchTest, GivesTheRawWaitStatusOfTheChild)
{
    ProcessLaunch exits = Launch({"exit", "7"}).start();
    exits.waitExec();
    EXPECT_EQ(exits.waitExit(), 7 << 8);
    ProcessLaunch dies = Launch({"signal", "9"}).start();
    dies.waitExec();
    EXPECT_EQ(dies.waitExit(), 9);
}

TEST_F(ProcessLaunchTest, PassesArgumentsEvenEmptyOnes)
{
    EXPECT_THAT(outputOf(Launch({"report", "a b", "", "c"})), HasSubstr("args: [a b] [] [c]\n"));
}

TEST_F(ProcessLaunchTest, RaisesAMissingProgramAtTheExec)
{
    Launch launch({});
    launch.path = "no-such-program";
    launch.searchPath = true;
    try {
        launch.start().waitExec();
        ADD_FAILURE() << "no exception";
    } catch (SystemError const& e) {
        EXPECT_STREQ(e.what(), "execvp: No such file or directory");
        EXPECT_EQ(e.code(), ENOENT);
    }
}

TEST_F(ProcessLaunchTest, NamesTheCallThatCouldNotExec)
{
    TempDir const dir;
    writeFile(dir / "plain", "no program");
    std::string const plain = dir / "plain";
    Launch launch({});
    launch.path = plain.c_str();
    EXPECT_EQ(failureOf<SystemError>(launch, 67), "execv: Permission denied");
    launch.searchPath = true;
    EXPECT_EQ(failureOf<SystemError>(launch, 67), "execvp: Permission denied");
    char const* const env[] = {nullptr};
    launch.env = env;
    EXPECT_EQ(failureOf<SystemError>(launch, 67), "execve: Permission denied");
}

TEST_F(ProcessLaunchTest, SearchesThePathOnlyWhenAskedTo)
{
    Launch launch({});
    launch.path = "true";
    EXPECT_EQ(failureOf<SystemError>(launch, 67), "execv: No such file or directory");
    launch.searchPath = true;
    ProcessLaunch child = launch.start();
    child.waitExec();
    EXPECT_EQ(child.waitExit(), 0);
}

TEST_F(ProcessLaunchTest, DoesNotSearchThePathWithAnEnvironment)
{
    char const* const env[] = {"PATH=/bin:/usr/bin", nullptr};
    Launch launch({});
    launch.path = "true";
    launch.searchPath = true;
    launch.env = env;
    EXPECT_EQ(failureOf<SystemError>(launch, 67), "execve: No such file or directory");
}

TEST_F(ProcessLaunchTest, ReplacesTheEnvironmentOrInheritsIt)
{
    setenv("LAUNCH_TEST", "inherited", 1);
    EXPECT_THAT(outputOf(Launch({"report"})), HasSubstr("env: LAUNCH_TEST=inherited\n"));
    char const* const env[] = {"LANG=C", nullptr};
    Launch launch({"report"});
    launch.env = env;
    std::string const report = outputOf(launch);
    EXPECT_THAT(report, HasSubstr("env: LANG=C\n"));
    EXPECT_THAT(report, Not(HasSubstr("LAUNCH_TEST")));
    unsetenv("LAUNCH_TEST");
}

TEST_F(ProcessLaunchTest, ChangesToTheDirectory)
{
    TempDir const dir;
    Launch launch({"report"});
    launch.cwd = dir.path().c_str();
    EXPECT_THAT(outputOf(launch), HasSubstr("cwd: " + dir.path() + "\n"));
}

TEST_F(ProcessLaunchTest, RaisesAMissingDirectory)
{
    Launch launch({"report"});
    launch.cwd = "/no/such/directory";
    EXPECT_EQ(failureOf<SystemError>(launch, 67), "cwd chdir: No such file or directory");
}

TEST_F(ProcessLaunchTest, StartsASessionOnlyWhenAskedTo)
{
    EXPECT_THAT(outputOf(Launch({"report"})), HasSubstr("session: inherited\n"));
    Launch launch({"report"});
    launch.newSession = true;
    EXPECT_THAT(outputOf(launch), HasSubstr("session: own\n"));
}

TEST_F(ProcessLaunchTest, RaisesASessionThatCannotBeStarted)
{
    Launch launch({"report"});
    launch.newSession = true;
    CallFailure const failure("setsid", EPERM);
    EXPECT_EQ(failureOf<SystemError>(launch, 67), "setsid: Operation not permitted");
}

TEST_F(ProcessLaunchTest, RaisesAReportPipeThatCannotCloseOnExec)
{
    Launch const launch({"report"});
    CallFailure const failure("fcntl", EINVAL);
    EXPECT_EQ(failureOf<SystemError>(launch, 67),
              "control pipe close-on-exec fcntl: Invalid argument");
}

TEST_F(ProcessLaunchTest, KeepsTheSignalMask)
{
    sigset_t mask;
    sigemptyset(&mask);
    sigaddset(&mask, SIGUSR2);
    sigprocmask(SIG_BLOCK, &mask, nullptr);
    EXPECT_THAT(outputOf(Launch({"report"})), HasSubstr("blocked: 12\n"));
    sigprocmask(SIG_UNBLOCK, &mask, nullptr);
}

TEST_F(ProcessLaunchTest, LetsTheChildInheritDescriptorsUnlessToldOtherwise)
{
    FdOwner const inherited(fcntl(0, F_DUPFD, 60));
    EXPECT_THAT(outputOf(Launch({"report"})), HasSubstr(" 60"));
    Launch launch({"report"});
    launch.closeDescriptors = true;
    EXPECT_THAT(outputOf(launch), StartsWith("fds: 0 1 2\n"));
}

TEST_F(ProcessLaunchTest, StillReportsAFailureAfterClosingAllDescriptors)
{
    Launch launch({});
    launch.path = "./missing";
    launch.closeDescriptors = true;
    EXPECT_EQ(failureOf<SystemError>(launch, 67), "execv: No such file or directory");
}

TEST_F(ProcessLaunchTest, RunsTheSetupInTheChildJustBeforeTheExec)
{
    TempDir const dir;
    Launch launch({"report"});
    launch.cwd = dir.path().c_str();
    launch.newSession = true;
    launch.childSetup = [] {
        if (getsid(0) == getpid())
            setenv("SETUP_RAN", "after setsid", 1);
    };
    EXPECT_THAT(outputOf(launch), HasSubstr("env: SETUP_RAN=after setsid\n"));
    EXPECT_EQ(getenv("SETUP_RAN"), nullptr);
}

TEST_F(ProcessLaunchTest, RaisesWhatTheSetupRaises)
{
    Launch launch({"report"});
    launch.childSetup = [] { throw SystemError("setup", ENOSPC); };
    EXPECT_EQ(failureOf<SystemError>(launch, 67), "setup: No space left on device");
    launch.childSetup = [] { throw orvek::ExSystemError<EPERM>("chown"); };
    EXPECT_EQ(failureOf<SystemError>(launch, 67), "chown: Operation not permitted");
    launch.childSetup = [] { throw std::runtime_error("a text"); };
    EXPECT_EQ(failureOf<std::runtime_error>(launch, 66), "a text");
    launch.childSetup = [] { throw std::runtime_error(""); };
    EXPECT_EQ(failureOf<std::runtime_error>(launch, 66), "an error in child process");
    launch.childSetup = [] { throw std::logic_error("lost"); };
    EXPECT_EQ(failureOf<std::exception>(launch, 66), std::exception().what());
    launch.childSetup = [] { throw 42; };
    EXPECT_EQ(failureOf<std::runtime_error>(launch, 65), "unknown error");
}

TEST_F(ProcessLaunchTest, RaisesAnErrorOfAnyLength)
{
    Launch launch({"report"});
    launch.childSetup = [] { throw std::runtime_error(std::string(300000, 'x')); };
    EXPECT_EQ(failureOf<std::runtime_error>(launch, 66), std::string(300000, 'x'));
}

TEST_F(ProcessLaunchTest, LeavesNoChildAfterAFailedExec)
{
    Launch launch({});
    launch.path = "/no/such/program";
    {
        ProcessLaunch child = launch.start();
        EXPECT_THROW(child.waitExec(), SystemError);
    }
    EXPECT_EQ(waitpid(-1, nullptr, 0), -1);
}

TEST_F(ProcessLaunchTest, FailsToWaitTwice)
{
    ProcessLaunch child = Launch({"exit", "0"}).start();
    child.waitExec();
    child.waitExit();
    EXPECT_EQ(textOf<SystemError>([&] { child.waitExit(); }),
              "unable to wait for child process exit: No child processes");
}

TEST_F(ProcessLaunchTest, PrintsPendingTextOnce)
{
    auto const run = inChild([] {
        printf("stdio ");
        std::cout << "cout ";
        orvek::uerr << "uerr";
        Launch launch({});
        launch.path = "/no/such/program";
        try {
            launch.start().waitExec();
        } catch (SystemError const&) {
            return 0;
        }
        return 1;
    });
    EXPECT_EQ(run.status, 0);
    EXPECT_EQ(run.err, "uerr");
    EXPECT_EQ(run.out.size(), strlen("stdio cout uerr"));
    EXPECT_THAT(run.out, HasSubstr("stdio cout "));
    EXPECT_THAT(run.out, HasSubstr("uerr"));
}

TEST_F(ProcessLaunchTest, FailsWithThePipesWordWhenForkFails)
{
    auto const run = inChild([] {
        if (geteuid() == 0 && (setgid(65534) != 0 || setuid(65534) != 0))
            return 3;
        rlimit old;
        getrlimit(RLIMIT_NPROC, &old);
        rlimit const none = {0, old.rlim_max};
        setrlimit(RLIMIT_NPROC, &none);
        auto const before = openDescriptors();
        Launch launch({"exit", "0"});
        launch.in = launch.out = launch.err = Capture;
        std::string const text = textOf<SystemError>([&] { launch.start(); });
        setrlimit(RLIMIT_NPROC, &old);
        if (text != "pipe: Resource temporarily unavailable")
            return 1;
        return openDescriptors() == before ? 0 : 2;
    });
    EXPECT_EQ(run.status, 0);
}

TEST_F(ProcessLaunchTest, RepeatsAForkThatASignalHasInterrupted)
{
    CallFailure const failure("fork", EINTR);
    EXPECT_EQ(outputOf(Launch({"say", "out", "\n"})), "out");
}

TEST_F(ProcessLaunchTest, RaisesAPipeEndThatCannotBeClosed)
{
    for (int call = 1; call <= 4; ++call) {
        Launch launch({"exit", "0"});
        launch.in = launch.out = launch.err = Capture;
        CallFailure const failure("close", EIO, call);
        EXPECT_EQ(textOf<SystemError>([&] { launch.start(); }), "close: Input/output error");
        waitForAllChildren();
    }
}

// Open at this point: the read end of the report pipe and the tool's ends of three captures.
// After a failing close the next ones are quiet, so the first of two failures is reported.
TEST_F(ProcessLaunchTest, ClosesItsPipesFromReportToStandardInput)
{
    auto const failureOfClose = [](int call, FdOwner ProcessLaunch::*closed_before) {
        return textOf<SystemError>([=] {
            Launch launch({"exit", "0"});
            launch.in = launch.out = launch.err = Capture;
            ProcessLaunch const child = launch.start();
            if (closed_before)
                close((child.*closed_before).fd);
            CallFailure::set("close", EIO, call);
        });
    };
    EXPECT_EQ(failureOfClose(1, &ProcessLaunch::stderrPipe),
              "pipe read-end close: Input/output error");
    EXPECT_EQ(failureOfClose(2, &ProcessLaunch::stdoutPipe), "close: Input/output error");
    EXPECT_EQ(failureOfClose(3, &ProcessLaunch::stdinPipe), "close: Input/output error");
    EXPECT_EQ(failureOfClose(4, nullptr), "close: Input/output error");
    waitForAllChildren();
}

TEST_F(ProcessLaunchTest, ClosesItsPipesQuietlyWhileAnExceptionIsInFlight)
{
    int after = 0;
    EXPECT_EQ(textOf<std::runtime_error>([&] {
                  struct Observer
                  {
                      int& seen;
                      ~Observer() { seen = errno; }
                  } const observer{after};
                  Launch launch({"exit", "0"});
                  launch.in = launch.out = launch.err = Capture;
                  ProcessLaunch const child = launch.start();
                  for (int const fd : {child.controlPipe.readEnd.fd, child.stdoutPipe.fd})
                      close(fd);
                  errno = ENOSPC;
                  throw std::runtime_error("in flight");
              }),
              "in flight");
    EXPECT_EQ(after, ENOSPC);
    waitForAllChildren();
}

TEST_F(ProcessLaunchTest, SurvivesAStormOfSignals)
{
    SignalStorm const storm;
    for (int i = 0; i < 20; ++i) {
        EXPECT_THAT(outputOf(Launch({"say", "out", ""})), "out");
        ProcessLaunch slow = Launch({"idle", "20"}).start();
        slow.waitExec();
        EXPECT_EQ(slow.waitExit(), 0);
    }
    EXPECT_GT(SignalStorm::interruptions, 100);
}
