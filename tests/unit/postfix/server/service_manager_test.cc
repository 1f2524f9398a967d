#include "postfix/server/service_manager.h"

#include "support/child_run.h"
#include "support/fd_census.h"
#include "support/pauses.h"
#include "support/postfix_stand_in.h"
#include "util/errors.h"

#include <gtest/gtest.h>

#include <chrono>
#include <climits>
#include <filesystem>
#include <optional>
#include <string>
#include <thread>
#include <utility>
#include <vector>

#include <fcntl.h>
#include <sys/mount.h>
#include <sys/wait.h>

using namespace orvek::mail::postfix;
using namespace std::chrono_literals;
using ServiceManagerOnHost = PostfixTest;

namespace {

std::vector<unsigned int> seconds(size_t count)
{
    return std::vector<unsigned int>(count, 1);
}

OrvekProcessInfo process(pid_t parent, char const* name)
{
    OrvekProcessInfo info = {};
    info.ppid = parent;
    info.procname = const_cast<char*>(name);
    return info;
}

void writePid(std::string const& text)
{
    writeFile(master_pid, text);
}

} // namespace

TEST(ServiceManager, KnowsTheQueueManagerByItsParentAndItsName)
{
    pid_t master = 42;
    auto const find = [&](pid_t parent, char const* name) {
        OrvekProcessInfo const info = process(parent, name);
        return findQmgrInfo(&info, &master);
    };
    EXPECT_EQ(find(42, "qmgr"), 0);
    EXPECT_EQ(find(43, "qmgr"), 1);
    EXPECT_EQ(find(42, "pickup"), 1);
    EXPECT_EQ(find(42, "qmgr2"), 1);
    EXPECT_EQ(find(42, "qmg"), 1);
    EXPECT_EQ(find(42, "QMGR"), 1);
    EXPECT_EQ(find(42, ""), 1);
    EXPECT_EQ(find(42, nullptr), 1);
}

TEST_F(ServiceManagerOnHost, ReadsTheNumberOfTheMasterProcess)
{
    EXPECT_EQ(getMasterPid(), -1);
    std::pair<char const*, pid_t> const files[] = {{"42", 42},
                                                   {"     1234\n", 1234},
                                                   {"\n\t 7 8\n", 7},
                                                   {"42abc", 42},
                                                   {"", -1},
                                                   {"\n", -1},
                                                   {"abc", -1},
                                                   {"x 42", -1},
                                                   {"-1", -1},
                                                   {"-", -1},
                                                   {"99999999999999", -1},
                                                   {"0", 0}};
    for (auto const& [text, pid] : files) {
        writePid(text);
        EXPECT_EQ(getMasterPid(), pid) << text;
    }
    std::filesystem::remove(master_pid);
    std::filesystem::create_directory(master_pid);
    EXPECT_EQ(getMasterPid(), -1);
    std::filesystem::remove(master_pid);
}

TEST_F(ServiceManagerOnHost, LooksOnceWithoutATimeout)
{
    Pauses const pauses;
    EXPECT_EQ(ServiceManager::statusServer(0), 1);
    EXPECT_EQ(ServiceManager::statusServer(-5), 1);
    StandInPostfix const postfix;
    EXPECT_EQ(ServiceManager::statusServer(0), 0);
    EXPECT_EQ(ServiceManager::statusServer(10), 0);
    EXPECT_EQ(ServiceManager::statusServer(LONG_MAX), 0);
    EXPECT_EQ(pauses.seconds(), seconds(0));
}

TEST_F(ServiceManagerOnHost, WaitsSecondBySecond)
{
    Pauses const pauses;
    EXPECT_EQ(ServiceManager::statusServer(3), 1);
    EXPECT_EQ(pauses.seconds(), seconds(3));
}

TEST_F(ServiceManagerOnHost, ReadsThePidFileAgainAtEachLook)
{
    for (size_t const number : {1U, 3U}) {
        std::optional<StandInPostfix> postfix;
        Pauses const pauses([&](size_t pause) {
            if (pause == number)
                postfix.emplace();
        });
        EXPECT_EQ(ServiceManager::statusServer(3), 0);
        EXPECT_EQ(pauses.seconds(), seconds(number));
    }
}

TEST_F(ServiceManagerOnHost, DoesNotTakeAStaleNumberForPostfix)
{
    {
        StandInPostfix const gone;
    }
    writePid(std::to_string(getpid()));
    EXPECT_EQ(ServiceManager::statusServer(0), 1);
    writePid(std::to_string(INT_MAX));
    EXPECT_EQ(ServiceManager::statusServer(0), 1);
    std::filesystem::remove(master_pid);
}

TEST_F(ServiceManagerOnHost, DoesNotCountAQueueManagerOfAnotherParent)
{
    StandInPostfix const postfix;
    writePid(std::to_string(getpid()));
    EXPECT_EQ(ServiceManager::statusServer(0), 1);
    writePid("none");
    EXPECT_EQ(ServiceManager::statusServer(0), 1);
}

TEST_F(ServiceManagerOnHost, DoesNotCountAMasterWithoutItsQueueManager)
{
    StandInPostfix const postfix("qmgr2");
    EXPECT_EQ(ServiceManager::statusServer(0), 1);
}

TEST_F(ServiceManagerOnHost, TakesNeitherFailedWalkNorMissingNumberForPostfix)
{
    auto const withoutProc = [] {
        if (unshare(CLONE_NEWNS) != 0 ||
            mount(nullptr, "/", nullptr, MS_REC | MS_PRIVATE, nullptr) != 0 ||
            mount("tmpfs", "/proc", "tmpfs", 0, "mode=000") != 0)
            return 42;
        leaveUnseen(seteuid(65534) != 0 ? 43 : ServiceManager::statusServer(0));
        return 44;
    };
    ChildRun run = inChild(withoutProc);
    EXPECT_EQ(run.status, 1);
    EXPECT_EQ(run.err, "");
    StandInPostfix const postfix;
    run = inChild(withoutProc);
    EXPECT_EQ(run.status, 1);
    EXPECT_EQ(run.err, "unable to open /proc filesystem: Permission denied\n\n");
}

TEST_F(ServiceManagerOnHost, GivesTheScriptItsCommandAndPassesItsCodeOn)
{
    for (int const code : {0, 1, 3, 67, 255}) {
        scriptExits(code);
        EXPECT_EQ(ServiceManager::rcCommand("some word"), code);
    }
    EXPECT_EQ(script.journal(), "some word\nsome word\nsome word\nsome word\nsome word\n");
}

TEST_F(ServiceManagerOnHost, Gives255ForAScriptThatASignalHasEnded)
{
    script.run("kill -KILL $$");
    EXPECT_EQ(ServiceManager::rcCommand("start"), 255);
}

TEST_F(ServiceManagerOnHost, GivesTheScriptNothingButItsLanguage)
{
    script.run("tr '\\0' ' ' < /proc/$$/environ > $dir/env\n"
               "readlink /proc/$$/fd/0 > $dir/in\n"
               "readlink /proc/$$/cwd > $dir/cwd\n"
               "tr '\\0' ' ' < /proc/$$/cmdline > $dir/cmdline");
    ChildRun const run = inChild([] {
        setenv("ORV_PASSWORD", "secret", 1);
        dup2(open("/dev/zero", O_RDONLY), STDIN_FILENO);
        return ServiceManager::rcCommand("reload");
    });
    EXPECT_EQ(run.status, 0);
    EXPECT_EQ(readFile(script.dir / "env"), "LANG=C ");
    EXPECT_EQ(readFile(script.dir / "in"), "/dev/null\n");
    EXPECT_EQ(readFile(script.dir / "cwd"), std::filesystem::current_path().string() + "\n");
    EXPECT_EQ(readFile(script.dir / "cmdline"), "/bin/bash /etc/init.d/postfix reload ");
}

TEST_F(ServiceManagerOnHost, KeepsTheScriptInItsSessionAndWithItsDescriptors)
{
    script.run("cut -d' ' -f6 /proc/$$/stat > $dir/session\n"
               "readlink /proc/$$/fd/57 > $dir/kept");
    std::string const session = std::to_string(getsid(0)) + "\n";
    ChildRun const run = inChild([] {
        dup2(open("/dev/zero", O_RDONLY), 57);
        return ServiceManager::rcCommand("reload");
    });
    EXPECT_EQ(run.status, 0);
    EXPECT_EQ(readFile(script.dir / "session"), session);
    EXPECT_EQ(readFile(script.dir / "kept"), "/dev/zero\n");
}

TEST_F(ServiceManagerOnHost, SendsTheErrorsOfTheScriptWhereItsOutputGoes)
{
    script.run("echo one; echo two >&2; echo three");
    ChildRun const run = inChild([] { return ServiceManager::rcCommand("stop"); });
    EXPECT_EQ(run.status, 0);
    EXPECT_EQ(run.out, "one\ntwo\nthree\n");
    EXPECT_EQ(run.err, "");
}

TEST_F(ServiceManagerOnHost, RaisesWhatKeepsTheScriptFromBeingRun)
{
    script.run("exit 0");
    shellRun("chmod 644 " + script.file);
    auto const before = openDescriptors();
    try {
        ServiceManager::reloadServer();
        ADD_FAILURE() << "nothing was raised";
    } catch (orvek::SystemError const& e) {
        EXPECT_STREQ(e.what(), "execve: Permission denied");
    }
    EXPECT_EQ(openDescriptors(), before);
    EXPECT_EQ(waitpid(-1, nullptr, WNOHANG), -1) << "a child is left";
    EXPECT_THROW(ServiceManager::startServer(), orvek::SystemError);
    EXPECT_THROW(ServiceManager::restartServer(), orvek::SystemError);
    StandInPostfix const postfix;
    EXPECT_THROW(ServiceManager::stopServer(), orvek::SystemError);
}

TEST_F(ServiceManagerOnHost, ReloadsByTheScriptWithoutALook)
{
    Pauses const pauses;
    for (int const code : {0, 4}) {
        scriptExits(code);
        EXPECT_EQ(ServiceManager::reloadServer(), code);
    }
    EXPECT_EQ(script.journal(), "reload\nreload\n");
    EXPECT_EQ(pauses.seconds(), seconds(0));
}

TEST_F(ServiceManagerOnHost, RunsNoScriptToStartWhatRuns)
{
    scriptExits(3);
    StandInPostfix const postfix;
    EXPECT_EQ(ServiceManager::startServer(), 0);
    EXPECT_EQ(script.journal(), "");
}

TEST_F(ServiceManagerOnHost, RestartsWhateverRuns)
{
    Pauses const pauses;
    scriptExits(0);
    EXPECT_EQ(ServiceManager::restartServer(), 1);
    StandInPostfix const postfix;
    EXPECT_EQ(ServiceManager::restartServer(), 0);
    EXPECT_EQ(script.journal(), "restart\nrestart\n");
    EXPECT_EQ(pauses.seconds(), seconds(5));
}

TEST_F(ServiceManagerOnHost, ReturnsTheCodeOfAFailedScriptAtOnce)
{
    Pauses const pauses;
    scriptExits(3);
    EXPECT_EQ(ServiceManager::startServer(), 3);
    EXPECT_EQ(ServiceManager::restartServer(), 3);
    script.run("kill -TERM $$");
    EXPECT_EQ(ServiceManager::startServer(), 255);
    EXPECT_EQ(pauses.seconds(), seconds(0));
    EXPECT_EQ(script.journal(), "start\nrestart\nstart\n");
}

TEST_F(ServiceManagerOnHost, GivesPostfixFiveSecondsToComeUp)
{
    scriptExits(0);
    for (auto* const bringUp : {ServiceManager::startServer, ServiceManager::restartServer}) {
        for (size_t const number : {1U, 5U}) {
            std::optional<StandInPostfix> postfix;
            Pauses const pauses([&](size_t pause) {
                if (pause == number)
                    postfix.emplace();
            });
            EXPECT_EQ(bringUp(), 0);
            EXPECT_EQ(pauses.seconds(), seconds(number));
        }
        Pauses const pauses;
        EXPECT_EQ(bringUp(), 1);
        EXPECT_EQ(pauses.seconds(), seconds(5));
    }
}

TEST_F(ServiceManagerOnHost, RunsNoScriptToStopWhatDoesNotRun)
{
    scriptExits(3);
    EXPECT_EQ(ServiceManager::stopServer(), 0);
    writePid(std::to_string(getpid()));
    EXPECT_EQ(ServiceManager::stopServer(), 0);
    std::filesystem::remove(master_pid);
    StandInPostfix const headless("pickup");
    EXPECT_EQ(ServiceManager::stopServer(), 0);
    EXPECT_EQ(script.journal(), "");
}

TEST_F(ServiceManagerOnHost, StopsByTheScriptAndWaitsForNothing)
{
    Pauses const pauses;
    StandInPostfix const postfix;
    for (int const code : {0, 3}) {
        scriptExits(code);
        EXPECT_EQ(ServiceManager::stopServer(), code);
    }
    EXPECT_EQ(script.journal(), "stop\nstop\n");
    EXPECT_EQ(ServiceManager::statusServer(0), 0);
    EXPECT_EQ(pauses.seconds(), seconds(0));
}

TEST_F(ServiceManagerOnHost, StartsRestartsReloadsAndStopsTheRealPostfix)
{
    Pauses const real([](size_t) { std::this_thread::sleep_for(1s); });
    ChildRun const run = inChild([] {
        using S = ServiceManager;
        if (S::statusServer(0) != 1 || S::startServer() != 0 || S::statusServer(0) != 0)
            return 10;
        pid_t const first = getMasterPid();
        if (S::reloadServer() != 0 || S::statusServer(5) != 0 || getMasterPid() != first)
            return 11;
        if (S::restartServer() != 0 || S::statusServer(0) != 0 || getMasterPid() == first)
            return 12;
        if (S::stopServer() != 0)
            return 13;
        return S::statusServer(0) == 1 ? 0 : 14;
    });
    EXPECT_EQ(run.status, 0) << run.out;
    EXPECT_EQ(run.err, "");
}
