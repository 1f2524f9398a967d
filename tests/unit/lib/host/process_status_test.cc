#include "lib/host/process_status.h"

#include "lib/report/owned.h"
#include "support/child_run.h"
#include "support/fd_census.h"
#include "support/log_recorder.h"
#include "support/syscall_faults.h"
#include "support/temp_dir.h"
#include "support/waiting_process.h"

#include <gtest/gtest.h>

#include <cerrno>
#include <climits>
#include <filesystem>
#include <string>
#include <vector>

#include <sys/prctl.h>
#include <sys/resource.h>
#include <sys/wait.h>
#include <syslog.h>
#include <unistd.h>

namespace {

// A visitor's view of one process.
struct Sight
{
    pid_t pid = -1;
    int seen = 0;
    pid_t ppid = 0;
    bool has_name = false;
    std::string name;
    bool has_arguments = false;
    std::vector<std::string> arguments;
    bool has_program = false;
    std::string program;
    std::vector<unsigned> ids;
};

int look(OrvekProcessInfo const* ppi, void* data)
{
    Sight& sight = *static_cast<Sight*>(data);
    if (ppi->pid != sight.pid)
        return 1;
    ++sight.seen;
    sight.ppid = ppi->ppid;
    sight.has_name = ppi->procname;
    sight.name = ppi->procname ? ppi->procname : "";
    sight.has_arguments = ppi->argv;
    for (char** argument = ppi->argv; argument && *argument; ++argument)
        sight.arguments.emplace_back(*argument);
    sight.has_program = ppi->exename;
    sight.program = ppi->exename ? ppi->exename : "";
    sight.ids = {ppi->ruid, ppi->rgid, ppi->euid, ppi->egid, ppi->suid, ppi->sgid};
    return 1;
}

Sight sightOf(pid_t pid, int flags)
{
    Sight sight;
    sight.pid = pid;
    EXPECT_EQ(iterateProcesses(flags, look, &sight), 1);
    EXPECT_LE(sight.seen, 1);
    return sight;
}

std::vector<unsigned> const no_ids(6, 0);

std::string ownProgram()
{
    return std::filesystem::read_symlink("/proc/self/exe");
}

int countAndGo(OrvekProcessInfo const*, void* data)
{
    ++*static_cast<int*>(data);
    return 7;
}

int countAndStop(OrvekProcessInfo const*, void* data)
{
    return -(++*static_cast<int*>(data)) + 1;
}

int countAndFail(OrvekProcessInfo const*, void* data)
{
    ++*static_cast<int*>(data);
    return -5;
}

// A child that has ended and has not been waited for, so it has no program any more.
struct Zombie
{
    Zombie()
    {
        if (pid == 0)
            _exit(0);
        siginfo_t info = {};
        waitid(P_PID, static_cast<id_t>(pid), &info, WEXITED | WNOWAIT);
    }
    ~Zombie() { waitpid(pid, nullptr, 0); }
    Zombie(Zombie const&) = delete;
    Zombie& operator=(Zombie const&) = delete;

    pid_t const pid = fork();
};

void beNamed(char const* name)
{
    prctl(PR_SET_NAME, name);
}

} // namespace

TEST(ProcessStatus, ReadsNothingButTheNumberWithoutFlags)
{
    Sight const sight = sightOf(getpid(), 0);
    EXPECT_EQ(sight.seen, 1);
    EXPECT_EQ(sight.ppid, 0);
    EXPECT_FALSE(sight.has_name || sight.has_arguments || sight.has_program);
    EXPECT_EQ(sight.ids, no_ids);
}

TEST(ProcessStatus, ReadsNameAndParentForEachOfTheirBits)
{
    WaitingProcess const child([] { beNamed("some-name"); });
    for (int const flags : {1, 2, 3}) {
        Sight const sight = sightOf(child.pid, flags);
        EXPECT_EQ(sight.name, "some-name");
        EXPECT_EQ(sight.ppid, getpid());
        EXPECT_FALSE(sight.has_arguments || sight.has_program);
        EXPECT_EQ(sight.ids, no_ids);
    }
}

TEST(ProcessStatus, ReadsTheProgramForItsBit)
{
    Sight const sight = sightOf(getpid(), 4);
    EXPECT_EQ(sight.program, ownProgram());
    EXPECT_FALSE(sight.has_name || sight.has_arguments);
    EXPECT_EQ(sight.ids, no_ids);
}

TEST(ProcessStatus, ReadsTheArgumentsForTheirBit)
{
    std::string const long_argument(10'000, 'x');
    WaitingProcess const child([&] {
        execl("/bin/sh", "0123456789", "-c", "read line", "", long_argument.c_str(), "", nullptr);
    });
    Sight const sight = sightOf(child.pid, 8);
    EXPECT_EQ(sight.arguments,
              (std::vector<std::string>{"0123456789", "-c", "read line", "", long_argument, ""}));
    EXPECT_FALSE(sight.has_name || sight.has_program);
}

TEST(ProcessStatus, ReadsTheIdentitiesForEachOfTheirBits)
{
    uid_t uids[3] = {};
    gid_t gids[3] = {};
    getresuid(&uids[0], &uids[1], &uids[2]);
    getresgid(&gids[0], &gids[1], &gids[2]);
    std::vector<unsigned> const expected = {uids[0], gids[0], uids[1], gids[1], uids[2], gids[2]};
    for (int const flags : {16, 32, 48}) {
        Sight const sight = sightOf(getpid(), flags);
        EXPECT_EQ(sight.seen, 1);
        EXPECT_EQ(sight.ids, expected);
        EXPECT_FALSE(sight.has_name || sight.has_arguments || sight.has_program);
    }
}

TEST(ProcessStatus, ReadsAllTogether)
{
    Sight const sight = sightOf(getpid(), 63);
    EXPECT_TRUE(sight.has_name);
    EXPECT_EQ(sight.ppid, getppid());
    EXPECT_FALSE(sight.arguments.empty());
    EXPECT_EQ(sight.program, ownProgram());
    EXPECT_EQ(sight.ids[0], getuid());
}

TEST(ProcessStatus, KeepsParenthesesInAName)
{
    WaitingProcess const child([] { beNamed("(a)(b))"); });
    EXPECT_EQ(sightOf(child.pid, 3).name, "(a)(b))");
}

TEST(ProcessStatus, PassesOverANameWithABlank)
{
    for (char const* const name : {"qmgr two", "qmgrs x 42", "qmgr) S 1", "qmgr\tS 1"}) {
        WaitingProcess const child([=] { beNamed(name); });
        EXPECT_EQ(sightOf(child.pid, 3).seen, 0) << name;
        EXPECT_EQ(sightOf(child.pid, 0).seen, 1) << name;
    }
}

TEST(ProcessStatus, TakesTheParentFromBehindTheWholeName)
{
    WaitingProcess const child([] { beNamed("qmgr)S(1)"); });
    Sight const sight = sightOf(child.pid, 3);
    EXPECT_EQ(sight.name, "qmgr)S(1)");
    EXPECT_EQ(sight.ppid, getpid());
}

TEST(ProcessStatus, GivesAZombieNoArguments)
{
    Zombie const zombie;
    Sight const sight = sightOf(zombie.pid, 8);
    EXPECT_TRUE(sight.has_arguments);
    EXPECT_TRUE(sight.arguments.empty());
}

TEST(ProcessStatus, EndsTheWalkAtAResultBelowOne)
{
    int visits = 0;
    EXPECT_EQ(iterateProcesses(0, countAndStop, &visits), 0);
    EXPECT_EQ(visits, 1);
    EXPECT_EQ(iterateProcesses(0, countAndFail, &visits), -5);
    EXPECT_EQ(visits, 2);
}

TEST(ProcessStatus, ReturnsTheLastResultOfTheVisitor)
{
    WaitingProcess const child([] {});
    int visits = 0;
    EXPECT_EQ(iterateProcesses(0, countAndGo, &visits), 7);
    EXPECT_GE(visits, 2);
}

TEST(ProcessStatus, KeepsErrnoAndDescriptors)
{
    Zombie const passed_over;
    auto const before = openDescriptors();
    errno = ENOTTY;
    Sight sight;
    sight.pid = passed_over.pid;
    iterateProcesses(63, look, &sight);
    EXPECT_EQ(errno, ENOTTY);
    EXPECT_EQ(sight.seen, 0);
    EXPECT_EQ(openDescriptors(), before);
}

TEST(ProcessStatus, ReportsThatProcCannotBeOpened)
{
    ChildRun const run = inChild([] {
        LogRecorder const recorder;
        rlimit const none = {0, 0};
        setrlimit(RLIMIT_NOFILE, &none);
        int visits = 0;
        int const result = iterateProcesses(3, countAndGo, &visits);
        std::vector<Report> const expected = {
            {LOG_ERR, "unable to open /proc filesystem: Too many open files\n"}};
        bool const reported = LogRecorder::reports() == expected;
        leaveUnseen(result == -1 && errno == EMFILE && visits == 0 && reported ? 0 : 1);
        return 1;
    });
    EXPECT_EQ(run.status, 0);
}

TEST(ProcessStatus, PassesOverAProcessThatCannotBeRead)
{
    for (int const flags : {1, 4, 8, 16}) {
        ChildRun const run = inChild([=] {
            int const dir = open("/proc", O_RDONLY | O_DIRECTORY);
            close(dir);
            rlimit const only_proc = {static_cast<rlim_t>(dir + 1), static_cast<rlim_t>(dir + 1)};
            if (flags != 4)
                setrlimit(RLIMIT_NOFILE, &only_proc);
            else
                failSystemCall(SYS_readlink, EACCES);
            LogRecorder const recorder;
            int visits = 0;
            int const result = iterateProcesses(flags, countAndGo, &visits);
            return result == 1 && visits == 0 && LogRecorder::reports().empty() ? 0 : 1;
        });
        EXPECT_EQ(run.status, 0) << flags;
    }
}

TEST(ProcessStatus, FindsAProcessByTheProgramThatItRuns)
{
    // A program of its own, because other runs of this test may be at work.
    TempDir const dir;
    std::string const program = dir / "program";
    std::filesystem::copy_file("/bin/cat", program);
    WaitingProcess const child([&] { execl(program.c_str(), "program", nullptr); });
    EXPECT_EQ(findProcessByPath(program.c_str()), child.pid);
    EXPECT_EQ(findProcessByPath("/no/such/program"), -1);
    EXPECT_EQ(findProcessByPath(""), -1);
}

TEST(ProcessStatus, TellsWhetherThereIsAProcess)
{
    EXPECT_EQ(findProcessByPid(getpid()), 0);
    EXPECT_EQ(findProcessByPid(INT_MAX), 1);
    EXPECT_EQ(findProcessByPid(0), 1);
    EXPECT_EQ(findProcessByPid(-1), 1);
    EXPECT_EQ(findProcessByPid(-getpid()), 1);
}

TEST(ProcessStatus, GivesTheProgramOfAProcess)
{
    CString const program(getProcessByPid(getpid()));
    ASSERT_TRUE(program);
    EXPECT_EQ(program.get(), ownProgram());
    EXPECT_EQ(getProcessByPid(INT_MAX), nullptr);
    EXPECT_EQ(getProcessByPid(0), nullptr);
    EXPECT_EQ(getProcessByPid(-getpid()), nullptr);
}

TEST(ProcessStatus, FindsNothingWhereProcCannotBeOpened)
{
    ChildRun const run = inChild([] {
        LogRecorder const recorder;
        rlimit const none = {0, 0};
        setrlimit(RLIMIT_NOFILE, &none);
        bool const nothing = findProcessByPath("/bin/sh") == -1 &&
                             findProcessByPid(getpid()) == -1 && !getProcessByPid(getpid());
        leaveUnseen(nothing && LogRecorder::reports().size() == 3 ? 0 : 1);
        return 1;
    });
    EXPECT_EQ(run.status, 0);
}

TEST(ProcessStatus, LooksForNoProcessOfANumberThatIsNone)
{
    ChildRun const run = inChild([] {
        rlimit const none = {0, 0};
        setrlimit(RLIMIT_NOFILE, &none);
        for (pid_t const pid : {0, -1, -getpid()})
            if (findProcessByPid(pid) != 1 || getProcessByPid(pid))
                leaveUnseen(1);
        leaveUnseen(0);
        return 1;
    });
    EXPECT_EQ(run.status, 0);
    EXPECT_EQ(run.err, "");
}
