#include "mail/lib/quota/maildirpp_folders.h"

#include "support/call_faults.h"
#include "support/child_run.h"
#include "support/maildir_test.h"
#include "support/path_faults.h"
#include "support/report.h"

#include <algorithm>
#include <cstring>

#include <unistd.h>

namespace fs = std::filesystem;

namespace {

class MaildirppFolders : public MaildirTest
{
protected:
    void SetUp() override
    {
        MaildirTest::SetUp();
        fs::current_path("Maildir");
        for (char const* const name : {".", ".Sent"}) {
            makeMaildir(name);
            for (char const* const subdir : {"/new", "/cur"})
                setTime(name + std::string(subdir), 1000);
        }
    }

    // The output on each stream of a look that must return this result.
    static std::string report(int result, int (*look)(time_t*))
    {
        auto const run = inChild([&] {
            time_t mtime = 0;
            return look(&mtime) == result ? 0 : 1;
        });
        EXPECT_EQ(run.status, 0);
        EXPECT_EQ(run.out, run.err);
        return run.err;
    }

    time_t latest()
    {
        time_t mtime = 0;
        EXPECT_EQ(get_maildirpp_latest_mtime(&mtime), 1);
        EXPECT_EQ(errno, 0);
        return mtime;
    }
};

} // namespace

TEST_F(MaildirppFolders, AFolderIsADotAndAnotherCharacter)
{
    for (char const* const name : {".Sent", ".x", ".a.b", ".Trash.old", ".trash", ".TRASH", ". "})
        EXPECT_TRUE(is_maildirpp_subfolder(name)) << name;
    for (char const* const name : {"", ".", "..", "..x", "Sent", "Trash", ".Trash", "x.y"})
        EXPECT_FALSE(is_maildirpp_subfolder(name)) << name;
}

TEST_F(MaildirppFolders, AFoldersTimeIsTheLaterOfItsTwo)
{
    time_t mtime = 0;
    EXPECT_EQ(get_maildirpp_folder_mtime(".Sent", &mtime), 1);
    EXPECT_EQ(mtime, 1000);
    setTime(".Sent/new", 3000);
    EXPECT_EQ(get_maildirpp_folder_mtime(".Sent", &mtime), 1);
    EXPECT_EQ(mtime, 3000);
    setTime(".Sent/cur", 4000);
    EXPECT_EQ(get_maildirpp_folder_mtime(".Sent", &mtime), 1);
    EXPECT_EQ(mtime, 4000);
    mtime = 5000;
    EXPECT_EQ(get_maildirpp_folder_mtime(".Sent", &mtime), 1);
    EXPECT_EQ(mtime, 5000);
}

TEST_F(MaildirppFolders, SaysWhatOfAFolderCannotBeLookedAt)
{
    auto const look = [](time_t* mtime) { return get_maildirpp_folder_mtime(".Sent", mtime); };
    fs::remove(".Sent/new");
    EXPECT_EQ(report(0, look), withErrno("Maildir subfolder 'new' stat failed", EIO));
    fs::remove(".Sent/cur");
    EXPECT_EQ(report(0, look), withErrno("Maildir subfolder 'cur' stat failed", EIO));
    time_t mtime = 0;
    EXPECT_EQ(inChild([&] {
                  return get_maildirpp_folder_mtime(".Sent", &mtime) == 0 && errno == EIO ? 0 : 1;
              }).status,
              0);
}

TEST_F(MaildirppFolders, SaysWhichPathIsTooLong)
{
    EXPECT_EQ(
        report(
            0,
            [](time_t* mtime) { return get_maildirpp_folder_mtime(pathTooLong().c_str(), mtime); }),
        withErrno("Maildir subfolder 'cur' name too long to fit the allowed buffer", ENAMETOOLONG));
    EXPECT_EQ(
        report(0,
               [](time_t* mtime) {
                   PathOverflow const overflow(2);
                   return get_maildirpp_folder_mtime(".Sent", mtime);
               }),
        withErrno("Maildir subfolder 'new' name too long to fit the allowed buffer", ENAMETOOLONG));
}

TEST_F(MaildirppFolders, TheLatestTimeIsTheRootsOrACountedFolders)
{
    EXPECT_EQ(latest(), 1000);
    makeMaildir(".Trash");
    EXPECT_EQ(latest(), 1000);
    char const* const names[] = {"cur", "new", ".Sent/cur", ".Sent/new"};
    for (time_t i = 0; i < 4; ++i) {
        setTime(names[i], 2000 + i);
        EXPECT_EQ(latest(), 2000 + i);
    }
}

TEST_F(MaildirppFolders, ReportsAnEntryThatIsNoFolderAndGoesOn)
{
    writeFile(".file", "");
    EXPECT_EQ(report(1, get_maildirpp_latest_mtime),
              "Bad/unrecognized entry .file within Maildir folder .\n");
    fs::remove(".file");
    fs::create_directory_symlink(".Sent", ".link");
    EXPECT_EQ(report(1, get_maildirpp_latest_mtime),
              "Bad/unrecognized entry .link within Maildir folder .\n");
}

TEST_F(MaildirppFolders, LooksAtAnEntryWhoseTypeIsUnknown)
{
    auto const look = [](time_t* mtime) {
        UnknownTypes const unknown;
        int const result = get_maildirpp_latest_mtime(mtime);
        return *mtime == 2000 ? result : -1;
    };
    setTime(".Sent/cur", 2000);
    EXPECT_EQ(report(1, look), "");
    writeFile(".file", "");
    EXPECT_EQ(report(1, look), "Bad/unrecognized entry .file within Maildir folder .\n");
    fs::remove(".file");
    fs::create_directory_symlink(".Sent", ".link");
    EXPECT_EQ(report(1, look), "Bad/unrecognized entry .link within Maildir folder .\n");
}

TEST_F(MaildirppFolders, ReportsAMaildirThatCannotBeOpened)
{
    EXPECT_EQ(report(0,
                     [](time_t* mtime) {
                         CallFailure const failing("openat", ENOENT);
                         return get_maildirpp_latest_mtime(mtime);
                     }),
              withErrno("Unable to open Maildir folder. Has it just been removed?", ENOENT));
}

TEST_F(MaildirppFolders, FailsSilentlyWhenTheMaildirCannotBeRead)
{
    EXPECT_EQ(report(0,
                     [](time_t* mtime) {
                         CallFailure const failing("readdir", EIO);
                         return get_maildirpp_latest_mtime(mtime) == 0 && errno == EIO ? 0 : 1;
                     }),
              "");
}

TEST_F(MaildirppFolders, EndsInAMaildirThatDoesNot)
{
    EXPECT_EQ(report(0,
                     [](time_t* mtime) {
                         int const listing = dup(STDOUT_FILENO); // the next one to be opened
                         close(listing);
                         int calls = 0;
                         BeforeCall const growing("readdir", each_call, [&] {
                             if (++calls < 200'000)
                                 lseek(listing, 0, SEEK_SET);
                         });
                         return get_maildirpp_latest_mtime(mtime) == 0 && errno == EFBIG ? 0 : 1;
                     }),
              "");
}

TEST_F(MaildirppFolders, FailsForAFolderThatIsRenamedDuringTheWalk)
{
    EXPECT_EQ(report(0,
                     [](time_t* mtime) {
                         BeforeCall const renaming("syscall", 1,
                                                   [] { fs::rename(".Sent", ".Old"); });
                         return get_maildirpp_latest_mtime(mtime);
                     }),
              withErrno("Maildir subfolder 'cur' stat failed", EIO));
}

TEST_F(MaildirppFolders, LooksThroughNoLinkForATime)
{
    fs::rename(".Sent", "elsewhere");
    for (char const* const name : {".Sent/cur", ".Sent"}) {
        fs::remove_all(".Sent");
        if (strcmp(name, ".Sent") != 0)
            makeMaildir(".Sent");
        fs::remove_all(name);
        fs::create_directory_symlink("../elsewhere/cur", name);
        EXPECT_EQ(
            report(0, [](time_t* mtime) { return get_maildirpp_folder_mtime(".Sent", mtime); }),
            withErrno("Maildir subfolder 'cur' stat failed", EIO));
    }
}

TEST_F(MaildirppFolders, ReportsAtMostAHundredEntriesThatAreNoFolder)
{
    for (int i = 0; i < 150; ++i)
        writeFile(".file" + std::to_string(i), "");
    std::string const text = report(1, get_maildirpp_latest_mtime);
    EXPECT_EQ(std::count(text.begin(), text.end(), '\n'), 100);
}
