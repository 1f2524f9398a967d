#include "postfix/maps/map_room.h"
#include "support/call_faults.h"
#include "support/map_changes_test.h"
#include "util/errors.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <cerrno>
#include <exception>
#include <functional>
#include <list>
#include <string>
#include <utility>

#include <fcntl.h>
#include <linux/fs.h>
#include <sys/file.h>
#include <sys/ioctl.h>
#include <sys/sendfile.h>
#include <sys/stat.h>
#include <time.h>
#include <unistd.h>

using namespace orvek::mail::postfix;

namespace {

bool blocks_are_shared = false;
std::function<void()> in_a_pause;

class MapCopiesOnHost : public MapChangesTest
{
protected:
    void TearDown() override
    {
        blocks_are_shared = false;
        in_a_pause = nullptr;
        MapChangesTest::TearDown();
    }

    struct stat indexed() const
    {
        struct stat info = {};
        EXPECT_EQ(stat((path + ".db").c_str(), &info), 0);
        return info;
    }

    // A map that takes too long to copy.
    void fillLarge()
    {
        fill("a 1\nb 2\n");
        std::filesystem::resize_file(path + ".db", 40 << 20);
    }
};

} // namespace

extern "C" {
int __real_ioctl(int fd, unsigned long request, ...);
int __wrap_ioctl(int fd, unsigned long request, int from)
{
    if (!blocks_are_shared || request != FICLONE)
        return __real_ioctl(fd, request, from);
    off_t at = 0;
    while (sendfile(fd, from, &at, 1 << 30) > 0) {
    }
    return 0;
}

int __wrap_nanosleep(timespec const*, timespec*)
{
    if (in_a_pause)
        in_a_pause();
    return 0;
}
}

TEST_F(MapCopiesOnHost, MakesANewFileOfEachSingleChange)
{
    fill("a 1\nb 2\nc 3\n");
    run("chown 7:8 " + path + ".db && chmod 640 " + path + ".db");
    ino_t before = indexed().st_ino;
    std::list<std::string> const keys{"b"};
    std::function<void()> const singles[] = {
        changes[0], changes[1],
        [&] { DatabaseHelper::removeRecords(map, keys.begin(), keys.end()); },
        [this] { DatabaseHelper::removeRecord(map, std::make_pair("c", "3")); }};
    for (auto const& change : singles) {
        OpenDescriptor const kept(
            open((path + ".db").c_str(), O_RDONLY)); // its number is not used again
        change();
        struct stat const now = indexed();
        EXPECT_NE(now.st_ino, before);
        EXPECT_EQ(now.st_uid, 7U);
        EXPECT_EQ(now.st_gid, 8U);
        EXPECT_EQ(now.st_mode & 07777, 0640U);
        before = now.st_ino;
    }
    EXPECT_EQ(content(), "");
}

TEST_F(MapCopiesOnHost, LeavesTheFileWhenNothingChanges)
{
    fill("a 1\n");
    struct stat const before = indexed();
    DatabaseHelper::removeRecord(map, "nowhere");
    DatabaseHelper::removeRecord(map, std::make_pair("a", "2"));
    EXPECT_EQ(indexed().st_ino, before.st_ino);
    EXPECT_EQ(indexed().st_mtim.tv_nsec, before.st_mtim.tv_nsec);
}

TEST_F(MapCopiesOnHost, DropsWhatAPostmapThatFailedHasChanged)
{
    fill("a 1\n");
    standIn("$real \"$@\"; kill -9 $$");
    for (int i = 0; i < 2; ++i)
        EXPECT_THROW(changes[i](), std::exception);
    EXPECT_EQ(content(), "a\t1\n");
}

TEST_F(MapCopiesOnHost, DatesEachChangeASecondAfterTheOneBefore)
{
    fill("a 1\n");
    run("touch -d @4000000000 " + path + ".db");
    for (long i = 1; i <= 4; ++i) {
        changes[(i - 1) % 3]();
        EXPECT_EQ(indexed().st_mtim.tv_sec, 4000000000 + i);
    }
}

TEST_F(MapCopiesOnHost, DatesAChangeOfAnOldFileNow)
{
    for (bool const large : {false, true}) {
        fillLarge();
        if (!large)
            fill("a 1\n");
        run("touch -d @1000 " + path + ".db");
        timespec now = {};
        clock_gettime(CLOCK_REALTIME, &now);
        changes[0]();
        EXPECT_GE(indexed().st_mtim.tv_sec, now.tv_sec);
        EXPECT_LT(indexed().st_mtim.tv_sec, now.tv_sec + 300);
    }
}

TEST_F(MapCopiesOnHost, ChangesALargeFileInPlace)
{
    fillLarge();
    run("touch -d @4000000000 " + path + ".db");
    struct stat const before = indexed();
    changes[1]();
    EXPECT_EQ(indexed().st_ino, before.st_ino);
    EXPECT_EQ(indexed().st_nlink, 1U);
    EXPECT_EQ(indexed().st_mtim.tv_sec, 4000000001);
    EXPECT_EQ(content(), "b\t2\n");
    DatabaseHelper::removeRecord(map, "nowhere");
    EXPECT_EQ(indexed().st_mtim.tv_sec, 4000000001);
}

TEST_F(MapCopiesOnHost, ReplacesALargeFileWhereBlocksAreShared)
{
    fillLarge();
    OpenDescriptor const kept(open((path + ".db").c_str(), O_RDONLY));
    struct stat const before = indexed();
    blocks_are_shared = true;
    changes[1]();
    EXPECT_NE(indexed().st_ino, before.st_ino);
    EXPECT_EQ(content(), "b\t2\n");
}

TEST_F(MapCopiesOnHost, AddsToAnEmptyFile)
{
    writeFile(path + ".db", "");
    changes[0]();
    EXPECT_EQ(content(), "a\t1\n");
}

TEST_F(MapCopiesOnHost, ChangesNothingWhenACopyHasNoPlace)
{
    fill("a 1\n");
    limitDisk("64k");
    run("! head -c 1M /dev/zero > " + (dir / "filler.db") + " 2>/dev/null");
    EXPECT_EQ(codeOf(changes[0]), ENOSPC);
    EXPECT_EQ(content(), "a\t1\n");
}

TEST_F(MapCopiesOnHost, WaitsForAProgramThatHasLockedTheFile)
{
    fill("a 1\n");
    OpenDescriptor const other(open((path + ".db").c_str(), O_RDONLY | O_CLOEXEC));
    ASSERT_EQ(flock(other.get(), LOCK_EX), 0);
    int pauses = 0;
    in_a_pause = [&] {
        if (++pauses == 3)
            flock(other.get(), LOCK_UN);
    };
    changes[1]();
    EXPECT_EQ(pauses, 3);
    EXPECT_EQ(content(), "");
}

TEST_F(MapCopiesOnHost, GivesUpOnAFileThatStaysLocked)
{
    fill("a 1\n");
    OpenDescriptor const other(open((path + ".db").c_str(), O_RDONLY | O_CLOEXEC));
    ASSERT_EQ(flock(other.get(), LOCK_EX), 0);
    for (auto const& change : changes)
        EXPECT_EQ(codeOf(change), EWOULDBLOCK);
    ASSERT_EQ(flock(other.get(), LOCK_UN), 0);
    EXPECT_EQ(content(), "a\t1\n");
}

TEST_F(MapCopiesOnHost, DoesNotHeedAReadersLock)
{
    fill("a 1\n");
    OpenDescriptor const reader(open((path + ".db").c_str(), O_RDONLY | O_CLOEXEC));
    ASSERT_EQ(flock(reader.get(), LOCK_SH), 0);
    changes[1]();
    EXPECT_EQ(content(), "");
}

TEST_F(MapCopiesOnHost, KeepsTheRightsOfAFileThatGoesMeanwhile)
{
    fill("a 1\nb 2\n");
    run("chown 7:8 " + path + ".db && chmod 640 " + path + ".db");
    standIn("rm /proc/" + std::to_string(getpid()) + "/root" + path + ".db; exec $real \"$@\"");
    changes[1]();
    EXPECT_EQ(indexed().st_mode & 07777, 0640U);
    EXPECT_EQ(indexed().st_uid, 7U);
    EXPECT_EQ(content(), "b\t2\n");
}

TEST_F(MapCopiesOnHost, NeedsNoDirectoryThatCanBeSynced)
{
    fill("a 1\n");
    CallFailure const failure("fsync", EINVAL); // a changed copy is synced by postmap
    changes[1]();
    EXPECT_EQ(content(), "");
}

TEST_F(MapCopiesOnHost, LeavesNoRoomThatCannotBeOpened)
{
    fill("a 1\n");
    {
        CallFailure const failure("fchownat", EIO);
        EXPECT_EQ(codeOf(changes[1]), EIO);
    }
    for (auto const& entry : std::filesystem::directory_iterator(dir.path()))
        EXPECT_FALSE(entry.is_directory()) << entry.path();
    EXPECT_EQ(content(), "a\t1\n");
}

TEST_F(MapCopiesOnHost, SucceedsOnlyWithTheWholeChange)
{
    for (int number = 1; number <= 8; ++number) {
        fill("a 1\n");
        run("chmod 640 " + path + ".db");
        int code = 0;
        {
            CallFailure const failure("fstatat", EIO, number);
            code = codeOf(changes[1]);
        }
        EXPECT_EQ(content(), code == 0 ? "" : "a\t1\n") << number;
        EXPECT_EQ(indexed().st_mode & 0777, 0640u) << number;
    }
}

TEST_F(MapCopiesOnHost, CopiesWhatTheHolderOfTheLockHasAdded)
{
    std::string large;
    for (int i = 1000; i < 4000; ++i)
        large += std::to_string(i) + " x\n";
    writeFile(tools / "large", large);
    run(real + " -r hash:" + (tools / "large"));
    fill("a 1\n");
    OpenDescriptor const other(open((path + ".db").c_str(), O_RDWR | O_CLOEXEC));
    ASSERT_EQ(flock(other.get(), LOCK_EX), 0);
    in_a_pause = [&] {
        std::string const grown = readFile(tools / "large.db");
        ASSERT_EQ(pwrite(other.get(), grown.data(), grown.size(), 0), ssize_t(grown.size()));
        flock(other.get(), LOCK_UN);
    };
    changes[0]();
    std::replace(large.begin(), large.end(), ' ', '\t');
    EXPECT_EQ(content(), large + "a\t1\n");
}

TEST_F(MapCopiesOnHost, TakesItsRightsFromTheFileThatWasCopied)
{
    std::string const outside = "/proc/" + std::to_string(getpid()) + "/root";
    for (int const change : {0, 1, 2}) {
        fill("a 1\n");
        run("chown 7:8 " + path + ".db && chmod 604 " + path + ".db");
        // Another user's file comes under the name meanwhile.
        standIn("cp -p " + outside + path + ".db " + outside + path + ".new.db && chown 9:9 " +
                outside + path + ".new.db && mv " + outside + path + ".new.db " + outside + path +
                ".db; exec $real \"$@\"");
        changes[change]();
        EXPECT_EQ(indexed().st_uid, 7U) << change;
        EXPECT_EQ(indexed().st_gid, 8U) << change;
        EXPECT_EQ(indexed().st_mode & 07777, 0604U) << change;
    }
}

TEST_F(MapCopiesOnHost, MakesAWholeMapRootsOwnWithTheOldMode)
{
    fill("a 1\n");
    run("chown 7:8 " + path + ".db && chmod 640 " + path + ".db");
    Records const whole{{"b", "2"}};
    DatabaseHelper::replaceRecords(map, whole.begin(), whole.end());
    EXPECT_EQ(indexed().st_uid, 0U);
    EXPECT_EQ(indexed().st_gid, 8U);
    EXPECT_EQ(indexed().st_mode & 07777, 0640U);
}

TEST_F(MapCopiesOnHost, BeginsAnewWhenAnotherProgramHasChangedTheMap)
{
    fill("a 1\nb 2\n");
    std::string const outside = "/proc/" + std::to_string(getpid()) + "/root";
    standIn(
        "echo x >> $dir/runs; [ $(wc -l < $dir/runs) -gt 1 ] || { cp " + outside + path +
        ".db $dir/theirs.db && echo 'late 3' | $real -i hash:$dir/theirs && cat $dir/theirs.db > " +
        outside + path + ".db; }; exec $real \"$@\"");
    changes[1]();
    EXPECT_EQ(content(), "b\t2\nlate\t3\n");
}

TEST_F(MapCopiesOnHost, GivesUpOnAMapThatOthersKeepChanging)
{
    fill("a 1\nb 2\n");
    std::string const outside = "/proc/" + std::to_string(getpid()) + "/root";
    standIn("$real \"$@\"; touch " + outside + path + ".db");
    for (int const change : {1, 2}) {
        EXPECT_THROW(changes[change](), PostfixDatabaseError);
        EXPECT_EQ(content(), "a\t1\nb\t2\n");
    }
}
