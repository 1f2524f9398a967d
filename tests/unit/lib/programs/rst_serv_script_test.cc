#include "lib/programs/rst_serv.h"

#include "support/call_faults.h"
#include "support/report.h"
#include "support/shell_script.h"
#include "support/syscall_faults.h"
#include "support/temp_dir.h"
#include "support/tidy_run.h"

#include <gtest/gtest.h>

#include <cerrno>
#include <csignal>
#include <cstdio>
#include <filesystem>
#include <functional>
#include <string>

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

namespace {

// A script in a directory of its own, and calls of it.
class RcScript : public ::testing::Test
{
protected:
    void SetUp() override { write("exit 0"); }

    void write(std::string const& text)
    {
        writeFile(path, "#!/bin/sh\n" + text + "\n");
        chmod(path.c_str(), 0755);
    }

    // The result of a call and its standard error. Standard output must be the
    // same.
    std::string called(
        char const* action, int report_failure = 1,
        std::function<void()> const& prepare = [] {}) const
    {
        ChildRun const run = inChild([&] {
            prepare();
            int const result = rc_script_gen(path.c_str(), "the-service", action, report_failure);
            return result == 0 ? 10 : result == -1 ? 11 : 12;
        });
        EXPECT_EQ(run.out, run.err);
        if (run.status == 10)
            return "0|" + run.err;
        return (run.status == 11 ? "-1|" : "status " + std::to_string(run.status) + "|") + run.err;
    }

    // The text that the script has written to its file.
    std::string told() const { return readFile(dir / "told"); }

    TempDir const dir;
    std::string const path = dir / "script";
};

} // namespace

TEST_F(RcScript, GivesZeroInSilenceForAScriptThatSucceeds)
{
    write("echo $* > told; echo printed");
    ChildRun const run = tidyRun([&] {
        if (rc_script(path.c_str(), "start") != 0)
            fputs("failed", stderr);
    });
    EXPECT_EQ(run.status, 0);
    EXPECT_EQ(run.out, "");
    EXPECT_EQ(run.err, "");
    EXPECT_EQ(told(), "start\n");
}

TEST_F(RcScript, LeavesTheScriptTheStandardErrorAlone)
{
    write("echo seen >&2");
    ChildRun const run = inChild([&] { return rc_script(path.c_str(), "start"); });
    EXPECT_EQ(run.status, 0);
    EXPECT_EQ(run.out, "");
    EXPECT_EQ(run.err, "seen\n");
}

TEST_F(RcScript, RunsTheScriptInItsDirectoryAndOwnSession)
{
    write("pwd > told; [ `ps -o sid= -p $$` = $$ ] && echo leader >> told");
    EXPECT_EQ(called("start"), "0|");
    EXPECT_EQ(told(), std::filesystem::canonical(dir.path()).string() + "\nleader\n");
}

TEST_F(RcScript, LeavesTheScriptNoDescriptorButTheStandardOnes)
{
    write("streams=$(readlink /proc/$$/fd/0 /proc/$$/fd/1); echo $streams $(ls /proc/self/fd) > "
          "told");
    auto const prepare = [] {
        EXPECT_GE(open("/", O_RDONLY), 0);
        EXPECT_EQ(dup2(open("/", O_RDONLY), 200), 200);
    };
    EXPECT_EQ(called("start", 1, prepare), "0|");
    // Descriptor 3 is that of ls, on the directory.
    EXPECT_EQ(told(), "/dev/null /dev/null 0 1 2 3\n");
}

TEST_F(RcScript, GivesTheScriptUsableNullStreams)
{
    write("cat > told; cat <&1 >> told; echo x >&0 && echo written >> told");
    EXPECT_EQ(called("start", 1,
                     [] {
                         close(STDIN_FILENO);
                         EXPECT_EQ(open("/etc/passwd", O_RDONLY), STDIN_FILENO);
                     }),
              "0|");
    EXPECT_EQ(told(), "written\n");
}

TEST_F(RcScript, GivesTheScriptNullStreamsWhereTheToolHasNone)
{
    write("streams=$(readlink /proc/$$/fd/0 /proc/$$/fd/1); echo $streams > told");
    ChildRun const run = inChild([&] {
        close(STDIN_FILENO);
        close(STDOUT_FILENO);
        return rc_script(path.c_str(), "start");
    });
    EXPECT_EQ(run.status, 0);
    EXPECT_EQ(told(), "/dev/null /dev/null\n");
}

TEST_F(RcScript, NamesTheServiceToTheProgram)
{
    writeFile(dir / "action", "tr '\\0' '|' < /proc/$$/cmdline > " + dir / "told");
    EXPECT_EQ(rc_script_gen("/bin/sh", "the service", (dir / "action").c_str(), 1), 0);
    EXPECT_EQ(told(), "the service|" + dir / "action" + "|");
    EXPECT_EQ(rc_script("/bin/sh", (dir / "action").c_str()), 0);
    EXPECT_EQ(told(), "/bin/sh|" + dir / "action" + "|");
}

TEST_F(RcScript, RunsAScriptThatNamesNoInterpreter)
{
    writeFile(path, "echo $1 > told");
    EXPECT_EQ(called("stop"), "0|");
    EXPECT_EQ(told(), "stop\n");
}

TEST_F(RcScript, KeepsTheEnvironment)
{
    write("echo $KEPT > told");
    EXPECT_EQ(called("start", 1, [] { setenv("KEPT", "kept", 1); }), "0|");
    EXPECT_EQ(told(), "kept\n");
}

TEST_F(RcScript, ReportsAFailureWhenAskedTo)
{
    write("exit 3");
    EXPECT_EQ(called("start"), "-1|Service the-service failed to start\n");
    EXPECT_EQ(called("force-reload"), "-1|Service the-service failed to force-reload\n");
    EXPECT_EQ(called("start", 0), "-1|");
}

TEST_F(RcScript, NeverReportsThatAStatusIsNotZero)
{
    write("exit 3");
    EXPECT_EQ(called("status", 1), "-1|");
    EXPECT_EQ(called("status", 0), "-1|");
}

TEST_F(RcScript, NamesThePathInTheReportsOfAPlainCall)
{
    write("exit 1");
    ChildRun const run = inChild([&] { return rc_script(path.c_str(), "stop") == -1 ? 0 : 1; });
    EXPECT_EQ(run.status, 0);
    EXPECT_EQ(run.err, "Service " + path + " failed to stop\n");
    EXPECT_EQ(run.out, run.err);
}

TEST_F(RcScript, AddsTheCallersErrnoToAReport)
{
    write("exit 1");
    EXPECT_EQ(called("stop", 1, [] { errno = EIO; }),
              "-1|" + withErrno("Service the-service failed to stop\n", EIO));
}

TEST_F(RcScript, ReportsAScriptThatASignalHasKilled)
{
    write("kill -KILL $$");
    for (int const report_failure : {0, 1}) {
        EXPECT_EQ(called("start", report_failure),
                  "-1|Unable to start service the-service: daemon killed by signal 9\n");
        EXPECT_EQ(called("status", report_failure),
                  "-1|Unable to status service the-service: daemon killed by signal 9\n");
    }
}

TEST_F(RcScript, ReportsAScriptThatASignalHasStopped)
{
    write("echo $$ > told; kill -STOP $$");
    EXPECT_EQ(called("restart", 0),
              "-1|Unable to restart service the-service: daemon stopped by signal 19\n");
    endProcessOf(dir / "told");
}

TEST_F(RcScript, ReportsAScriptThatMayNotBeExecuted)
{
    chmod(path.c_str(), 0644);
    EXPECT_EQ(called("start"), "-1|Service the-service failed to start\n");
    EXPECT_EQ(called("status"), "-1|");
}

TEST_F(RcScript, EndsTheProcessWhenThereIsNoScript)
{
    std::string const missing = path + ".missing";
    ChildRun run = inChild([&] { return rc_script(missing.c_str(), "start"); });
    EXPECT_EQ(run.status, 1);
    EXPECT_EQ(run.err,
              withErrno("No such file '" + missing + "': No such file or directory", ENOENT));
    EXPECT_EQ(run.out, run.err);

    std::string const below = path + "/below";
    run = inChild([&] { return rc_script(below.c_str(), "status"); });
    EXPECT_EQ(run.status, 1);
    EXPECT_EQ(run.err, withErrno("No such file '" + below + "': Not a directory", ENOTDIR));
    EXPECT_EQ(run.out, run.err);
}

TEST_F(RcScript, EndsTheProcessWhenTheScriptCannotBeLookedAt)
{
    std::string const overlong(5000, 'x');
    ChildRun const run = inChild([&] { return rc_script(overlong.c_str(), "start"); });
    EXPECT_EQ(run.status, 1);
    EXPECT_EQ(run.err, withErrno("Error during access to '" + overlong + "': File name too long",
                                 ENAMETOOLONG));
    EXPECT_EQ(run.out, run.err);
}

TEST_F(RcScript, EndsTheProcessForWhatIsNoRegularFile)
{
    ChildRun const run = inChild([&] { return rc_script(dir.path().c_str(), "start"); });
    EXPECT_EQ(run.status, 1);
    EXPECT_EQ(run.err, "Not a regular file: '" + dir.path() + "'\n");
    EXPECT_EQ(run.out, run.err);
}

TEST_F(RcScript, FollowsALink)
{
    std::filesystem::create_symlink(path, dir / "link");
    EXPECT_EQ(rc_script((dir / "link").c_str(), "start"), 0);
}

TEST_F(RcScript, ReportsAForkThatFails)
{
    EXPECT_EQ(called("start", 0, [] { failFork(EAGAIN); }),
              "-1|" + withErrno("fork: start for the-service: Resource temporarily unavailable\n",
                                EAGAIN));
}

TEST_F(RcScript, ReportsAWaitThatFails)
{
    EXPECT_EQ(called("reload", 0, [] { signal(SIGCHLD, SIG_IGN); }),
              "-1|" + withErrno("Error occured during reload service the-service: "
                                "No child processes\n",
                                ECHILD));
}

TEST_F(RcScript, DoesNotRunTheScriptOutsideOfItsDirectory)
{
    write("echo ran > told");
    ChildRun const run = inChild([&] {
        CallFailure const failure("chdir", EACCES);
        return rc_script(path.c_str(), "start") == -1 ? 0 : 1;
    });
    EXPECT_EQ(run.status, 0);
    EXPECT_EQ(
        run.err,
        withErrno("Unable to change directory to " + dir.path() + ": Permission denied\n", EACCES) +
            "Service " + path + " failed to start\n");
    EXPECT_EQ(run.out, run.err);
    EXPECT_EQ(told(), "");
}

TEST_F(RcScript, DoesNotRunTheScriptInTheToolsSession)
{
    write("echo ran > told");
    ChildRun const run = inChild([&] {
        failSystemCall(SYS_setsid, EPERM);
        return rc_script(path.c_str(), "start") == -1 ? 0 : 1;
    });
    EXPECT_EQ(run.status, 0);
    EXPECT_EQ(run.err,
              "setsid() failed: Operation not permitted\nService " + path + " failed to start\n");
    EXPECT_EQ(run.out, "Service " + path + " failed to start\n");
    EXPECT_EQ(told(), "");
}

TEST_F(RcScript, DoesNotRunTheScriptOnTheToolsStreams)
{
    write("echo ran > told");
    ChildRun const run = inChild([&] {
        CallFailure const failure("open", ENXIO);
        return rc_script(path.c_str(), "start") == -1 ? 0 : 1;
    });
    EXPECT_EQ(run.status, 0);
    EXPECT_EQ(run.err, "Service " + path + " failed to start\n");
    EXPECT_EQ(told(), "");
}

TEST_F(RcScript, PrintsOnceWhatStdioHeldAtTheFork)
{
    ChildRun const run = inChild([&] {
        fputs("held ", stdout);
        CallFailure const failure("chdir", EACCES); // the child leaves by exit then
        return rc_script_gen(path.c_str(), "x", "status", 0) == -1 ? 0 : 1;
    });
    EXPECT_EQ(run.status, 0);
    EXPECT_EQ(run.out, "held " + run.err);
}
