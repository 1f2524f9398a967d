#include "lib/host/process_status.h"

#include "lib/report/owned.h"
#include "support/call_faults.h"
#include "support/host_test.h"
#include "support/temp_dir.h"

#include <cerrno>
#include <filesystem>
#include <map>
#include <string>

#include <sys/mount.h>

namespace fs = std::filesystem;

namespace {

using Seen = std::map<pid_t, std::string>;

int note(OrvekProcessInfo const* ppi, void* data)
{
    std::string text;
    if (ppi->exename)
        text += std::string("exe ") + ppi->exename + " ";
    if (ppi->argv)
        text += "argv ";
    for (char** argument = ppi->argv; argument && *argument; ++argument)
        text += std::string("[") + *argument + "] ";
    if (ppi->procname)
        text += std::string("name [") + ppi->procname + "] " + std::to_string(ppi->ppid) + " ";
    for (unsigned const id : {ppi->ruid, ppi->euid, ppi->suid, ppi->rgid, ppi->egid, ppi->sgid})
        text += std::to_string(id) + " ";
    static_cast<Seen*>(data)->emplace(ppi->pid, text);
    return 1;
}

std::string const no_ids = "0 0 0 0 0 0 ";
std::string const status_text = "Name:\tx\nUid:\t1\t2\t3\t4\nGid:\t5\t6\t7\t8\n";

// Puts a made-up process table in the place of /proc.
class ProcessStatusOnHost : public HostTest
{
protected:
    void SetUp() override
    {
        HostTest::SetUp();
        if (HasFatalFailure())
            return;
        ASSERT_EQ(mount("tmpfs", "/proc", "tmpfs", 0, nullptr), 0);
        mounted = true;
    }

    void TearDown() override { EXPECT_TRUE(!mounted || umount2("/proc", MNT_DETACH) == 0); }

    static void file(std::string const& process, std::string const& name, std::string const& text)
    {
        fs::create_directory("/proc/" + process);
        writeFile("/proc/" + process + "/" + name, text);
    }

    static Seen seen(int flags)
    {
        Seen all;
        EXPECT_EQ(iterateProcesses(flags, note, &all), 1);
        return all;
    }

private:
    bool mounted = false;
};

} // namespace

TEST_F(ProcessStatusOnHost, FindsNobodyInAnEmptyTable)
{
    EXPECT_EQ(seen(0), Seen());
}

TEST_F(ProcessStatusOnHost, TakesDirectoriesNamedByWholeNumbersAlone)
{
    for (char const* const name : {"12", "007", "0", "000", "-3", "+4", "5x", "x5", " 6", "7 ",
                                   "2147483648", "99999999999999999999", "self", "1.5"})
        fs::create_directory(std::string("/proc/") + name);
    writeFile("/proc/20", "");
    fs::create_directory_symlink("/proc/12", "/proc/21");
    EXPECT_EQ(seen(0), (Seen{{12, no_ids}, {7, no_ids}}));
}

TEST_F(ProcessStatusOnHost, LooksAtAnEntryWhoseTypeIsNotTold)
{
    UnknownTypes const untyped;
    fs::create_directory("/proc/12");
    writeFile("/proc/20", "");
    fs::create_directory_symlink("/proc/12", "/proc/21");
    EXPECT_EQ(seen(0), (Seen{{12, no_ids}}));
    fs::remove("/proc/20");
    fs::remove("/proc/21");
    CallFailure const vanished("lstat", ENOENT);
    EXPECT_EQ(seen(0), Seen());
}

TEST_F(ProcessStatusOnHost, PassesOverAProcessWhoseFilesFailInTheMiddle)
{
    file("2", "cmdline", "two");
    CallFailure const failing("read", EIO, 2);
    EXPECT_EQ(seen(8), Seen());
}

TEST_F(ProcessStatusOnHost, ReadsTheNameAndTheParent)
{
    file("2", "stat", "2 (qmgr) S 10 2 2 0");
    file("3", "stat", "3 (quite a name) S 10 2");
    file("4", "stat", "4 (qmgr) S 17) S 10 2");
    file("5", "stat", "5 (gone");
    file("6", "stat", "");
    file("7", "stat", "7 () S 10");
    file("8", "cmdline", "");
    EXPECT_EQ(seen(3), (Seen{{2, "name [qmgr] 10 " + no_ids}, {7, "name [] 10 " + no_ids}}));
}

TEST_F(ProcessStatusOnHost, PassesOverANameWithoutItsEnd)
{
    file("2", "stat", "2 (qmgr S 10 2");
    file("3", "stat", "3 (" + std::string(5000, 'n') + ") S 10 2");
    file("4", "stat", "4 (qmgr) S 10 2");
    EXPECT_EQ(seen(3), (Seen{{4, "name [qmgr] 10 " + no_ids}}));
}

TEST_F(ProcessStatusOnHost, SplitsTheCommandLineAtItsNullBytes)
{
    using namespace std::string_literals;
    file("2", "cmdline", "one\0two\0"s);
    file("3", "cmdline", "no\0end"s);
    file("4", "cmdline", ""s);
    file("5", "cmdline", "\0\0"s);
    file("6", "cmdline", "123456789\0"s + "1234567890\0"s + "12345678901\0"s);
    file("7", "stat", "");
    fs::create_directories("/proc/8/cmdline");
    EXPECT_EQ(seen(8), (Seen{{2, "argv [one] [two] " + no_ids},
                             {3, "argv [no] [end] " + no_ids},
                             {4, "argv " + no_ids},
                             {5, "argv [] [] " + no_ids},
                             {6, "argv [123456789] [1234567890] [12345678901] " + no_ids}}));
}

TEST_F(ProcessStatusOnHost, ReadsTheIdentities)
{
    file("2", "status", status_text);
    file("3", "status", "Gid:\t4294967294 6 7 8 Uid: 1 2 3 4\nUid: x");
    file("4", "status", "Uid:\t1\t2\t3\nGid:\t5\t6\t7\t8\n");
    file("5", "status", "Uid:\t1\t2\t3\t4\n");
    file("6", "status", "Name: Uid:\nUid:\t1\t2\t3\t4\nGid:\t5\t6\t7\t8\n");
    file("7", "status", std::string(250, 'w') + "\n" + status_text);
    file("8", "stat", "");
    file("9", "status", "xUid: 9 9 9 9\n" + status_text);
    EXPECT_EQ(seen(48), (Seen{{2, "1 2 3 5 6 7 "},
                              {3, "1 2 3 4294967294 6 7 "},
                              {7, "1 2 3 5 6 7 "},
                              {9, "1 2 3 5 6 7 "}}));
}

TEST_F(ProcessStatusOnHost, ReadsTheLinkOfTheProgram)
{
    for (char const* const process : {"2", "3", "4"})
        fs::create_directory(std::string("/proc/") + process);
    fs::create_symlink("/a/program (deleted)", "/proc/2/exe");
    fs::create_symlink("/" + std::string(4094, 'x'), "/proc/3/exe");
    EXPECT_EQ(seen(4), (Seen{{2, "exe /a/program (deleted) " + no_ids},
                             {3, "exe /" + std::string(4094, 'x') + " " + no_ids}}));
}

TEST_F(ProcessStatusOnHost, ShowsAProcessOnlyWithEverythingAskedFor)
{
    file("2", "stat", "2 (two) S 1");
    file("2", "status", status_text);
    file("2", "cmdline", "two");
    fs::create_symlink("/two", "/proc/2/exe");
    for (char const* const missing : {"exe", "cmdline", "stat", "status"}) {
        fs::copy("/proc/2", "/proc/3",
                 fs::copy_options::recursive | fs::copy_options::copy_symlinks);
        EXPECT_EQ(seen(63).size(), 2U);
        fs::remove(std::string("/proc/3/") + missing);
        EXPECT_EQ(seen(63), (Seen{{2, "exe /two argv [two] name [two] 1 1 2 3 5 6 7 "}}))
            << missing;
        fs::remove_all("/proc/3");
    }
}

TEST_F(ProcessStatusOnHost, LeavesNothingOfOneProcessInTheNext)
{
    using namespace std::string_literals;
    file("3", "cmdline", "a long command line\0of two"s);
    file("2", "cmdline", "b\0"s);
    EXPECT_EQ(seen(8), (Seen{{2, "argv [b] " + no_ids},
                             {3, "argv [a long command line] [of two] " + no_ids}}));
}

TEST_F(ProcessStatusOnHost, FindsTheFirstOfThoseThatRunTheProgram)
{
    for (char const* const process : {"4", "2", "3", "5"}) {
        fs::create_directory(std::string("/proc/") + process);
        fs::create_symlink("/sbin/daemon", std::string("/proc/") + process + "/exe");
    }
    pid_t first = -1;
    iterateProcesses(
        process_exe,
        [](OrvekProcessInfo const* ppi, void* data) {
            *static_cast<pid_t*>(data) = ppi->pid;
            return 0;
        },
        &first);
    EXPECT_EQ(findProcessByPath("/sbin/daemon"), first);
    fs::remove_all("/proc/" + std::to_string(first));
    EXPECT_NE(findProcessByPath("/sbin/daemon"), -1);
}

TEST_F(ProcessStatusOnHost, FindsByProgramAndByNumber)
{
    for (char const* const process : {"2", "3"})
        fs::create_directory(std::string("/proc/") + process);
    fs::create_symlink("/sbin/two", "/proc/2/exe");
    EXPECT_EQ(findProcessByPath("/sbin/two"), 2);
    EXPECT_EQ(findProcessByPath("/sbin/tw"), -1);
    EXPECT_EQ(findProcessByPid(2), 0);
    EXPECT_EQ(findProcessByPid(3), 1); // a kernel thread, which has no program
    CString const program(getProcessByPid(2));
    ASSERT_TRUE(program);
    EXPECT_STREQ(program.get(), "/sbin/two");
    EXPECT_EQ(getProcessByPid(3), nullptr);
}
