#include "mail/lib/quota/maildirpp_maildirsize.h"

#include "support/call_faults.h"
#include "support/child_run.h"
#include "support/fd_census.h"
#include "support/maildir_test.h"
#include "support/path_faults.h"
#include "support/report.h"

#include <climits>
#include <functional>
#include <string>
#include <system_error>

namespace fs = std::filesystem;

namespace {

constexpr char no_file[] =
    "Maximal allowed number of attempts to create a maildirsize file exceeded";

// The names that the new file may get in the next seconds.
std::vector<std::string> namesToCome()
{
    char host[65];
    gethostname(host, sizeof host);
    std::vector<std::string> names;
    time_t const now = time(nullptr);
    for (time_t second = now; second < now + 30; ++second)
        names.push_back("tmp/" + std::to_string(second) + "." + std::to_string(getpid()) + "." +
                        host + "-maildirsize");
    return names;
}

class MaildirppMaildirsize : public MaildirTest
{
protected:
    static int write(sizequota_t sq = 5000, fcount_t cq = 0)
    {
        return write_maildirpp_maildirsize("Maildir", getuid(), getgid(), sq, cq);
    }

    // The file's content after a write, which must succeed.
    std::string written(sizequota_t sq, fcount_t cq)
    {
        EXPECT_EQ(write(sq, cq), 1);
        EXPECT_EQ(errno, 0);
        EXPECT_EQ(here().substr(here().rfind('/')), "/Maildir");
        fs::current_path("..");
        return readFile("Maildir/maildirsize");
    }

    // The output of a write that must fail with this error while an object of type Prepared lives.
    // It must leave everything as it was.
    template<class Prepared, class... Arguments>
    std::string failureWith(int error, Arguments... arguments)
    {
        writeFile("Maildir/maildirsize", "old");
        std::string const before = here();
        auto const run = inChild([&] {
            auto const open = openDescriptors();
            {
                Prepared const prepared(arguments...);
                if (write() != 0 || errno != error)
                    return 1;
            }
            if (here() != before || openDescriptors() != open)
                return 2;
            if (!fs::is_empty("Maildir/tmp") || readFile("Maildir/maildirsize") != "old")
                return 3;
            return 0;
        });
        EXPECT_EQ(run.status, 0);
        EXPECT_EQ(run.out, run.err);
        return run.err;
    }
};

} // namespace

TEST_F(MaildirppMaildirsize, WritesTheQuotaAndTheUsage)
{
    letter("new/1", 3);
    letter("cur/1,S=100", 0);
    EXPECT_EQ(written(5000, 0), "5000S,0C\n         103           2\n");
    EXPECT_EQ(written(0, 7), "0S,7C\n         103           2\n");
    EXPECT_TRUE(fs::is_empty("Maildir/tmp"));
}

TEST_F(MaildirppMaildirsize, WritesNumbersOfAnyWidth)
{
    letter("cur/1,S=9223372036854775807", 0);
    EXPECT_EQ(written(LLONG_MIN, ULLONG_MAX), "-9223372036854775808S,18446744073709551615C\n"
                                              "9223372036854775807           1\n");
}

TEST_F(MaildirppMaildirsize, ReplacesTheFileByRename)
{
    written(1, 0);
    fs::create_hard_link("Maildir/maildirsize", "old");
    EXPECT_EQ(written(2, 0), "2S,0C\n           0           0\n");
    EXPECT_EQ(readFile("old"), "1S,0C\n           0           0\n");
}

TEST_F(MaildirppMaildirsize, NamesTheNewFileAfterTimeProcessAndHost)
{
    char host[65];
    gethostname(host, sizeof host);
    std::string name;
    {
        BeforeCall const look("renameat", 1, [&] {
            for (auto const& entry : fs::directory_iterator("tmp"))
                name = entry.path().filename();
        });
        EXPECT_EQ(write(), 1);
    }
    EXPECT_EQ(name.substr(name.find('.')),
              "." + std::to_string(getpid()) + "." + host + "-maildirsize");
    EXPECT_NEAR(std::stod(name), static_cast<double>(time(nullptr)), 5);
}

TEST_F(MaildirppMaildirsize, LeavesTheFileOfAQuietMailboxAsItIs)
{
    time_t const start = time(nullptr);
    folder(".Sent");
    setTimes(start - 5000, {".Sent"});
    written(1, 0);
    EXPECT_GE(timeOf("Maildir/maildirsize"), start - 1);
}

TEST_F(MaildirppMaildirsize, DatesTheFileBackWhenMailComesDuringTheCount)
{
    time_t const start = time(nullptr) - 5000;
    folder(".Sent");
    for (char const* const name : {"new", "cur", ".Sent/new", ".Sent/cur"}) {
        setTimes(start, {".Sent"});
        BeforeCall const delivery("renameat", 1, [&] { setTime(name, start + 1); });
        EXPECT_EQ(written(1, 0), "1S,0C\n           0           0\n");
        EXPECT_EQ(timeOf("Maildir/maildirsize"), start - 960) << name;
    }
}

TEST_F(MaildirppMaildirsize, DoesNotMindAFolderThatGoesDuringTheCount)
{
    time_t const start = time(nullptr);
    folder(".Sent");
    setTimes(start - 5000);
    BeforeCall const removal("renameat", 1, [] { fs::remove_all(".Sent"); });
    written(1, 0);
    EXPECT_FALSE(fs::exists("Maildir/.Sent"));
    EXPECT_GE(timeOf("Maildir/maildirsize"), start - 1);
}

TEST_F(MaildirppMaildirsize, DatesTheFileBackByTheTimeOfTheCount)
{
    time_t const start = time(nullptr) - 5000;
    setTimes(start);
    letter("cur/1", 1);
    setTimes(start);
    {
        BeforeCall const delivery("fstatat", 1, [&] {
            writeFile("new/2", "xx");
            setTime("new", start + 100);
        });
        EXPECT_EQ(written(1, 0), "1S,0C\n           1           1\n");
    }
    EXPECT_EQ(timeOf("Maildir/maildirsize"), start - 960);
}

TEST_F(MaildirppMaildirsize, DoesNotMindMailInTrash)
{
    time_t const start = time(nullptr);
    folder(".Trash");
    letter(".Trash/cur/1,S=50", 0);
    setTimes(start - 5000);
    EXPECT_EQ(written(1, 0), "1S,0C\n           0           0\n");
    EXPECT_GE(timeOf("Maildir/maildirsize"), start - 1);
}

TEST_F(MaildirppMaildirsize, DatesTheFileBackWhenItCannotLookAgain)
{
    time_t const start = time(nullptr) - 5000;
    folder(".Sent");
    setTimes(start, {".Sent"});
    auto const run = inChild([] {
        BeforeCall const renaming("renameat", 1, [] { fs::remove(".Sent/cur"); });
        return write() == 1 && errno == 0 ? 0 : 1;
    });
    EXPECT_EQ(run.status, 0);
    EXPECT_EQ(run.err, withErrno("Maildir subfolder 'cur' stat failed", EIO));
    EXPECT_EQ(timeOf("Maildir/maildirsize"), start - 960);
}

TEST_F(MaildirppMaildirsize, DatesTheFileOfAMaildirWithoutDirectoriesFarBack)
{
    fs::remove("Maildir/new");
    fs::remove("Maildir/cur");
    EXPECT_EQ(inChild([] { return write() == 1 ? 0 : 1; }).status, 0);
    EXPECT_EQ(timeOf("Maildir/maildirsize"), -960);
    struct stat info = {};
    ASSERT_EQ(stat("Maildir/maildirsize", &info), 0);
    EXPECT_NEAR(static_cast<double>(info.st_atime), static_cast<double>(time(nullptr)), 5);
}

TEST_F(MaildirppMaildirsize, FailsAtOnceWithoutAMaildirOrAWayBack)
{
    EXPECT_EQ((failureWith<CallFailure>(EMFILE, "open", EMFILE)), "");
    EXPECT_EQ((failureWith<CallFailure>(EACCES, "fchdir", EACCES)), "");
}

TEST_F(MaildirppMaildirsize, FailsWithoutTheNameOfTheHost)
{
    EXPECT_EQ((failureWith<CallFailure>(EFAULT, "gethostname", EFAULT)),
              withErrno("Unable to receive hostname", EFAULT));
}

TEST_F(MaildirppMaildirsize, FailsWhenTheNameOfTheHostIsTooLong)
{
    EXPECT_EQ((failureWith<PathOverflow>(ENAMETOOLONG, 1)),
              withErrno("host name is too long to be used in filename", ENAMETOOLONG));
}

TEST_F(MaildirppMaildirsize, TriesAgainAfterAPause)
{
    struct Attempt
    {
        char const* call;
        int error;
        int number;
    };
    // The second call of syscall() opens tmp.
    for (Attempt const& attempt :
         {Attempt{"syscall", EMFILE, 2}, {"openat", EMFILE, 1}, {"fchmod", EIO, 1}}) {
        pauses_detail::pauses.clear();
        CallFailure const failing(attempt.call, attempt.error, attempt.number);
        EXPECT_EQ(written(1, 0), "1S,0C\n           0           0\n") << attempt.call;
        EXPECT_EQ(pauses, std::vector<unsigned int>({2}));
        EXPECT_TRUE(fs::is_empty("Maildir/tmp"));
    }
}

TEST_F(MaildirppMaildirsize, GivesUpAfterFiveAttempts)
{
    fs::remove("Maildir/tmp");
    std::string const before = here();
    auto const run = inChild([&] {
        return write() == 0 && errno == EAGAIN && here() == before &&
                       pauses == std::vector<unsigned int>({2, 2, 2, 2, 2})
                   ? 0
                   : 1;
    });
    EXPECT_EQ(run.status, 0);
    EXPECT_EQ(run.err, withErrno(no_file, EAGAIN));
    EXPECT_EQ(run.out, run.err);
}

TEST_F(MaildirppMaildirsize, TakesNoFileThatIsThereAlready)
{
    auto const run = inChild([] {
        BeforeCall const others("openat", 1, [] {
            for (std::string const& name : namesToCome())
                writeFile(name, "other");
        });
        return write() == 0 && errno == EAGAIN ? 0 : 1;
    });
    EXPECT_EQ(run.status, 0);
    EXPECT_EQ(run.err, withErrno(no_file, EAGAIN));
    for (auto const& entry : fs::directory_iterator("Maildir/tmp"))
        EXPECT_EQ(readFile(entry.path()), "other");
}

TEST_F(MaildirppMaildirsize, FollowsNoLinkInTheNewFilesPlace)
{
    std::string const outside = here() + "/outside";
    auto const run = inChild([&] {
        BeforeCall const links("openat", 1, [&] {
            for (std::string const& name : namesToCome())
                fs::create_symlink(outside, name);
        });
        return write() == 0 && errno == EAGAIN ? 0 : 1;
    });
    EXPECT_EQ(run.status, 0);
    EXPECT_FALSE(fs::exists(outside));
}

TEST_F(MaildirppMaildirsize, WritesThroughNoLinkToTheMaildirOrItsTmp)
{
    std::string const outside = here() + "/outside";
    fs::create_directory(outside);
    fs::remove("Maildir/tmp");
    fs::create_directory_symlink(outside, "Maildir/tmp");
    EXPECT_EQ(inChild([] { return write() == 0 && errno == EAGAIN ? 0 : 1; }).status, 0);
    fs::rename("Maildir", "Other");
    fs::create_directory(outside + "/tmp");
    fs::create_directory_symlink(outside, "Maildir");
    EXPECT_EQ(inChild([] { return write() == 0 && errno == ELOOP ? 0 : 1; }).status, 0);
    EXPECT_TRUE(fs::is_empty(outside + "/tmp"));
    EXPECT_FALSE(fs::exists(outside + "/maildirsize"));
}

TEST_F(MaildirppMaildirsize, DatesNoOtherFileBackThatTakesItsPlace)
{
    time_t const start = time(nullptr) - 5000;
    std::string const outside = here() + "/outside";
    writeFile(outside, "precious");
    setTime(outside, start);
    std::function<void()> const swaps[] = {
        [&] { fs::create_symlink(outside, "maildirsize"); },
        [&] { fs::create_hard_link(outside, "maildirsize"); },
        [&] { ASSERT_EQ(mkfifo("maildirsize", 0666), 0); },
    };
    for (auto const& swap : swaps) {
        {
            // During the second look; the count itself calls no fstatat.
            BeforeCall const delivery("fstatat", 1, [&] {
                setTime("new", time(nullptr) + 100);
                fs::remove("maildirsize");
                swap();
            });
            EXPECT_EQ(write(), 1);
            EXPECT_EQ(errno, 0);
            EXPECT_EQ(timeOf(outside), start);
            fs::remove("maildirsize");
        }
        fs::current_path("..");
    }
}

TEST_F(MaildirppMaildirsize, HasItsModeWhateverTheUmask)
{
    for (mode_t const mask : {mode_t{0}, mode_t{0777}}) {
        mode_t const before = umask(mask);
        written(1, 0);
        umask(before);
        EXPECT_EQ(modeOf("Maildir/maildirsize"), 0644U);
    }
}

TEST_F(MaildirppMaildirsize, RemovesTheNewFileAfterEachFailure)
{
    letter("cur/1", 1);
    EXPECT_EQ((failureWith<CallFailure>(EPERM, "fchown", EPERM)), "");
    EXPECT_EQ((failureWith<CallFailure>(EIO, "fstatat", EIO)), "");
    EXPECT_EQ((failureWith<CallFailure>(ENOSPC, "write", ENOSPC)),
              withErrno("unable to write data to file", ENOSPC));
    EXPECT_EQ((failureWith<CallFailure>(EIO, "fsync", EIO)),
              withErrno("unable to commit written data to file", EIO));
    // Two directories are closed before the file.
    EXPECT_EQ((failureWith<CallFailure>(EDQUOT, "close", EDQUOT, 3)),
              withErrno("unable to commit written data to file", EDQUOT));
    EXPECT_EQ((failureWith<CallFailure>(EXDEV, "renameat", EXDEV)), "");
}

TEST_F(MaildirppMaildirsize, KeepsTheErrorAfterTheNewFilesRemoval)
{
    // After that both closing and removing fail, with different errors.
    std::function<void()> const takeAway = [] {
        for (auto const& entry : fs::directory_iterator("tmp"))
            fs::remove(entry.path());
        for (auto const& entry : fs::directory_iterator("/proc/self/fd")) {
            std::error_code ignored;
            fs::path const target = fs::read_symlink(entry.path(), ignored);
            if (target.native().find("-maildirsize") != std::string::npos)
                close(std::stoi(entry.path().filename()));
        }
    };
    EXPECT_EQ((failureWith<BeforeCall>(EBADF, "write", 1, takeAway)),
              withErrno("unable to write data to file", EBADF));
}

TEST_F(MaildirppMaildirsize, WritesOnWhenAWriteIsInterrupted)
{
    for (int const error : {EINTR, EAGAIN}) {
        CallFailure const failing("write", error);
        EXPECT_EQ(written(1, 0), "1S,0C\n           0           0\n");
    }
    CallFailure const nothing("write", 0, 1, 0);
    EXPECT_EQ(written(1, 0), "1S,0C\n           0           0\n");
}

TEST_F(MaildirppMaildirsize, WritesTheRestAfterAShortWrite)
{
    // The first write returns 5 without writing.
    CallFailure const part("write", 0, 1, 5);
    EXPECT_EQ(written(1, 0), "\n           0           0\n");
}
