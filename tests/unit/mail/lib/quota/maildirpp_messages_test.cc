#include "mail/lib/quota/maildirpp_messages.h"

#include "support/call_faults.h"
#include "support/maildir_test.h"
#include "support/ordinary_user.h"

#include <climits>
#include <fstream>

namespace fs = std::filesystem;

namespace {

class MaildirppMessages : public MaildirTest
{
protected:
    void SetUp() override
    {
        MaildirTest::SetUp();
        fs::current_path("Maildir");
        makeMaildir("../Maildir");
    }

    static void empty(std::string const& path) { writeFile(path, ""); }

    Usage counted()
    {
        Usage usage = {77, 77};
        mtime = 0;
        result = get_maildirpp_messages_usage(&usage.first, &usage.second, &mtime);
        return usage;
    }
    // The usage that a message with this name and two bytes adds.
    static Usage added(std::string const& name)
    {
        writeFile("cur/" + name, "xx");
        Usage usage = {0, 0};
        time_t ignored = 0;
        EXPECT_EQ(process_maildir_subdir("cur", &usage.first, &usage.second, &ignored), 1);
        fs::remove("cur/" + name);
        return usage;
    }

    int result = -1;
    time_t mtime = 0;
};

// One figure of the process's memory, in kilobytes.
long memory(std::string const& line)
{
    std::ifstream status("/proc/self/status");
    for (std::string word; status >> word;)
        if (word == line) {
            long kilobytes = 0;
            status >> kilobytes;
            return kilobytes;
        }
    return 0;
}

// How much the process's memory grows while code runs.
template<class Code>
long growthDuring(Code code)
{
    writeFile("/proc/self/clear_refs", "5"); // resets the peak
    long const before = memory("VmRSS:");
    code();
    return memory("VmHWM:") - before;
}

} // namespace

TEST_F(MaildirppMessages, TakesTheSizeFromTheName)
{
    EXPECT_EQ(added("1.M2P3.host,S=5000"), Usage(5000, 1));
    EXPECT_EQ(added("1.M2P3.host,S=5000:2,S"), Usage(5000, 1));
    EXPECT_EQ(added("1.M2P3.host,S=5000,W=5100:2,S"), Usage(2, 1));
    EXPECT_EQ(added("1.M2P3.host,W=5100,S=5000:2,S"), Usage(5000, 1));
    EXPECT_EQ(added(",S=0"), Usage(0, 1));
    EXPECT_EQ(added("1,S=9223372036854775807"), Usage(LLONG_MAX, 1));
}

TEST_F(MaildirppMessages, LooksAfterABadSizeForAnother)
{
    EXPECT_EQ(added("1,S=,S=40:2,"), Usage(40, 1));
    EXPECT_EQ(added("1,S=10,S=40"), Usage(40, 1));
    EXPECT_EQ(added("1,S=10x,S=40"), Usage(40, 1));
    EXPECT_EQ(added("1,S=9223372036854775808,S=40"), Usage(40, 1));
    EXPECT_EQ(added("1,S=99999999999999999999:2,S"), Usage(2, 1));
}

TEST_F(MaildirppMessages, LooksAtTheFileWhenTheNameHasNoSize)
{
    EXPECT_EQ(added("1.M2P3.host:2,S"), Usage(2, 1));
    EXPECT_EQ(added("1.M2P3.host,S=:2,S"), Usage(2, 1));
    EXPECT_EQ(added("1.M2P3.host,S=x"), Usage(2, 1));
    EXPECT_EQ(added("1.M2P3.host,s=50"), Usage(2, 1));
}

TEST_F(MaildirppMessages, LooksAtNoFileWhoseNameHasASize)
{
    empty("cur/1,S=10");
    empty("cur/2,S=20:2,S");
    empty("new/3,S=,S=30");
    CallFailure const failing("fstatat", EIO);
    EXPECT_EQ(counted(), Usage(60, 3));
    EXPECT_EQ(result, 1);
}

TEST_F(MaildirppMessages, AddsLinksAndDirectoriesThemselves)
{
    fs::create_symlink("nowhere", "cur/link");
    EXPECT_EQ(counted(), Usage(7, 1));
    fs::create_directory("new/dir,S=3");
    EXPECT_EQ(counted(), Usage(10, 2));
}

TEST_F(MaildirppMessages, KeepsASumThatLeavesTheRangeAtItsEnd)
{
    empty("cur/1,S=9223372036854775807");
    empty("cur/2,S=1");
    EXPECT_EQ(counted(), Usage(LLONG_MAX, 2));
    fs::remove("cur/2,S=1");
    fs::remove("cur/1,S=9223372036854775807");
    empty("cur/1,S=-9223372036854775808");
    empty("new/2,S=-1");
    EXPECT_EQ(counted(), Usage(LLONG_MIN, 2));
}

TEST_F(MaildirppMessages, AddsTheRootAndItsFoldersAndNothingElse)
{
    for (char const* const name : {".", ".Sent", ".Sent.2024", ".x", ".Trash.old", ".trash",
                                   ".Trash", "..hidden", "Sent", ".file"})
        if (std::string(name) != ".file")
            makeMaildir(name);
    empty(".file");
    empty("new/a,S=1");
    empty("cur/a,S=10");
    empty("tmp/a,S=5");
    empty(".Sent/new/a,S=100");
    empty(".Sent/cur/a,S=1000");
    empty(".Sent/tmp/a,S=5");
    empty(".Sent.2024/cur/a,S=10000");
    empty(".x/cur/a,S=100000");
    empty(".Trash.old/cur/a,S=1000000");
    empty(".trash/cur/a,S=10000000");
    empty(".Trash/cur/a,S=5");
    empty("..hidden/cur/a,S=5");
    empty("Sent/cur/a,S=5");
    EXPECT_EQ(counted(), Usage(11111111, 8));
    EXPECT_EQ(result, 1);
    EXPECT_EQ(errno, 0);
}

TEST_F(MaildirppMessages, PassesOverALinkToAFolder)
{
    makeMaildir("../elsewhere");
    empty("../elsewhere/cur/a,S=5");
    fs::create_directory_symlink("../elsewhere", ".link");
    EXPECT_EQ(counted(), Usage(0, 0));
}

TEST_F(MaildirppMessages, PassesOverAFolderWhoseTypeIsUnknown)
{
    makeMaildir(".Sent");
    empty("cur/a,S=1");
    empty(".Sent/cur/a,S=10");
    EXPECT_EQ(counted(), Usage(11, 2));
    UnknownTypes const unknown;
    EXPECT_EQ(counted(), Usage(1, 1));
    EXPECT_EQ(result, 1);
}

TEST_F(MaildirppMessages, RaisesTheTimeToThatOfTheLatestDirectory)
{
    makeMaildir(".Sent");
    makeMaildir(".Trash");
    for (char const* const name : {"new", "cur", ".Sent/new", ".Sent/cur", ".Trash/cur"})
        setTime(name, 1000);
    setTime(".Trash/new", 9000);
    counted();
    EXPECT_EQ(mtime, 1000);
    char const* const latest[] = {"new", "cur", ".Sent/new", ".Sent/cur"};
    for (time_t i = 0; i < 4; ++i) {
        setTime(latest[i], 2000 + i);
        counted();
        EXPECT_EQ(mtime, 2000 + i);
    }
    mtime = 5000;
    Usage usage;
    EXPECT_EQ(process_maildir_subdir("cur", &usage.first, &usage.second, &mtime), 1);
    EXPECT_EQ(mtime, 5000);
}

TEST_F(MaildirppMessages, FindsNothingInAMissingDirectoryOrAFile)
{
    fs::remove("new");
    fs::remove("cur");
    EXPECT_EQ(counted(), Usage(0, 0));
    EXPECT_EQ(result, 1);
    EXPECT_EQ(mtime, 0);
    EXPECT_EQ(errno, 0);
    empty("cur");
    EXPECT_EQ(counted(), Usage(0, 0));
    EXPECT_EQ(result, 1);
}

TEST_F(MaildirppMessages, FindsNothingThroughALinkAndHoldsAtNoFifo)
{
    makeMaildir("../elsewhere");
    empty("../elsewhere/cur/a,S=5");
    fs::remove_all("cur");
    fs::create_directory_symlink("../elsewhere/cur", "cur");
    EXPECT_EQ(counted(), Usage(0, 0));
    EXPECT_EQ(result, 1);
    fs::remove("cur");
    ASSERT_EQ(mkfifo("cur", 0666), 0);
    EXPECT_EQ(counted(), Usage(0, 0));
    EXPECT_EQ(result, 1);
    // A folder when it is listed, but a link when it is opened.
    makeMaildir(".Sent");
    BeforeCall const swap("syscall", 3, [] {
        fs::remove_all(".Sent");
        fs::create_directory_symlink("../elsewhere", ".Sent");
    });
    EXPECT_EQ(counted(), Usage(0, 0));
    EXPECT_EQ(result, 1);
}

TEST_F(MaildirppMessages, FindsNothingInADirectoryThatCannotBeOpened)
{
    empty("cur/1,S=10");
    setTime("cur", 1000);
    {
        CallFailure const failing("syscall", EACCES, 2); // new, cur
        EXPECT_EQ(counted(), Usage(0, 0));
    }
    EXPECT_EQ(result, 1);
    EXPECT_GE(mtime, 1000);
}

TEST_F(MaildirppMessages, SkipsAMessageThatVanishes)
{
    writeFile("cur/1", "x");
    for (int const error : {ENOENT, ENOTDIR}) {
        CallFailure const failing("fstatat", error);
        EXPECT_EQ(counted(), Usage(0, 0));
        EXPECT_EQ(result, 1);
        EXPECT_EQ(errno, 0);
    }
    BeforeCall const expunge("fstatat", 1, [] { fs::remove("cur/1"); });
    EXPECT_EQ(counted(), Usage(0, 0));
    EXPECT_EQ(result, 1);
}

TEST_F(MaildirppMessages, FailsWhenAMessageCannotBeLookedAt)
{
    makeMaildir(".Sent");
    for (char const* const name : {"new/1", "cur/1", ".Sent/new/1", ".Sent/cur/1"}) {
        empty(name);
        CallFailure const failing("fstatat", EIO);
        counted();
        EXPECT_EQ(result, 0) << name;
        EXPECT_EQ(errno, EIO);
        fs::remove(name);
    }
}

TEST_F(MaildirppMessages, FailsWhenADirectoryCannotBeReadToItsEnd)
{
    makeMaildir(".Sent");
    // Three reads each for new and cur.
    for (int const number : {1, 4, 7}) {
        CallFailure const failing("readdir", EIO, number);
        counted();
        EXPECT_EQ(result, 0) << number;
        EXPECT_EQ(errno, EIO);
    }
}

TEST_F(MaildirppMessages, FailsWhenTheMaildirCannotBeOpened)
{
    CallFailure const failing("openat", EMFILE);
    EXPECT_EQ(counted(), Usage(77, 77));
    EXPECT_EQ(result, 0);
    EXPECT_EQ(errno, EMFILE);
}

TEST_F(MaildirppMessages, RefusesPathsOfMoreThan4095Characters)
{
    Usage usage = {0, 0};
    std::string const folder = pathTooLong();
    for (size_t const length : {folder.size(), size_t(4085)}) {
        errno = 0;
        EXPECT_EQ(process_maildirpp_subfolder(folder.substr(0, length).c_str(), &usage.first,
                                              &usage.second, &mtime),
                  0);
        EXPECT_EQ(errno, ENAMETOOLONG);
    }
    errno = 0;
    EXPECT_EQ(process_maildirpp_subfolder(folder.substr(0, 4081).c_str(), &usage.first,
                                          &usage.second, &mtime),
              1);
    EXPECT_NE(errno, ENAMETOOLONG);
}

TEST_F(MaildirppMessages, NeedsNoMoreMemoryForMoreMessages)
{
    auto const fill = [](int from, int to) {
        for (int i = from; i < to; ++i)
            empty("cur/" + std::to_string(i) + "." + std::string(200, 'x') + ",S=1000:2,S");
    };
    fill(0, 500);
    EXPECT_EQ(counted(), Usage(500000, 500));
    fill(500, 4000);
    long const growth = growthDuring([this] { EXPECT_EQ(counted(), Usage(4000000, 4000)); });
    EXPECT_LT(growth, 200);
}
