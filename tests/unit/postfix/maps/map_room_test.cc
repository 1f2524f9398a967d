#include "postfix/maps/map_room.h"

#include "postfix/maps/change_lock.h"
#include "support/map_changes_test.h"

#include <gtest/gtest.h>

#include <cerrno>
#include <csignal>
#include <exception>
#include <string>

#include <fcntl.h>
#include <sys/stat.h>
#include <sys/wait.h>
#include <unistd.h>

using namespace orvek::mail::postfix;

namespace {

bool namespaces_are_refused = false;

bool keepAll(std::string&)
{
    return true;
}

class MapRoomOnHost : public MapChangesTest
{
protected:
    void TearDown() override
    {
        namespaces_are_refused = false;
        MapChangesTest::TearDown();
    }

    // Puts something else under the name of the indexed file.
    void plant(std::string const& command) { run("rm -f " + path + ".db && " + command); }

    void makeVictim()
    {
        writeFile(tools / "victim", "");
        run(real + " hash:" + (tools / "victim"));
        victim = readFile(tools / "victim.db");
    }

    void expectVictimUntouched() const { EXPECT_EQ(readFile(tools / "victim.db"), victim); }

    Records const one{{"a", "1"}};
    std::string victim;
};

} // namespace

extern "C" {
int __real_unshare(int flags);
int __wrap_unshare(int flags)
{
    if (!namespaces_are_refused)
        return __real_unshare(flags);
    errno = EPERM;
    return -1;
}
}

TEST_F(MapRoomOnHost, ShowsPostmapTheBorrowedFileAndNothingElse)
{
    writeFile(dir / "other.db", "");
    standIn("ls -A " + dir.path() + " > $dir/seen; stat -c '%u %a' " + dir.path() +
            " >> $dir/seen; exec $real \"$@\"");
    DatabaseHelper::addRecord(map, "a", "1");
    EXPECT_EQ(readFile(tools / "seen"), "map.db\n0 700\n");
    EXPECT_EQ(journal(), "-r -i " + map + "\n");
    EXPECT_EQ(content(), "a\t1\n");
    EXPECT_EQ(rooms(), 0);
}

TEST_F(MapRoomOnHost, RebuildsWithoutTheFileInUse)
{
    fill("a 1\n");
    standIn("ls -A " + dir.path() + " >> $dir/seen; exec $real \"$@\"");
    DatabaseHelper::filterRecords(map, keepAll);
    EXPECT_EQ(readFile(tools / "seen"), "map\nmap.db\nmap\n");
    EXPECT_EQ(content(), "a\t1\n");
}

TEST_F(MapRoomOnHost, LetsReadersHaveTheOldMapDuringARebuild)
{
    fill("a 1\n");
    OpenDescriptor const old(open((path + ".db").c_str(), O_RDONLY));
    struct stat before = {};
    fstat(old.get(), &before);
    standIn("[ $1 = -s ] || { cmp /proc/" + std::to_string(getpid()) + "/fd/" +
            std::to_string(old.get()) + " /proc/" + std::to_string(getpid()) + "/root" + path +
            ".db && echo same >> $dir/same; }; exec $real \"$@\"");
    DatabaseHelper::filterRecords(map, [](std::string& line) {
        line = "b 2";
        return true;
    });
    EXPECT_EQ(readFile(tools / "same"), "same\n");
    struct stat after = {};
    stat((path + ".db").c_str(), &after);
    EXPECT_NE(after.st_ino, before.st_ino);
    EXPECT_EQ(content(), "b\t2\n");
}

TEST_F(MapRoomOnHost, GivesTheNewFileTheOldOnesOwnerAndMode)
{
    fill("a 1\n");
    run("chown 7:8 " + path + ".db && chmod 640 " + path + ".db");
    DatabaseHelper::filterRecords(map, keepAll);
    struct stat info = {};
    stat((path + ".db").c_str(), &info);
    EXPECT_EQ(info.st_uid, 7U);
    EXPECT_EQ(info.st_gid, 8U);
    EXPECT_EQ(modeOf(path + ".db"), 0640U);
}

TEST_F(MapRoomOnHost, DatesTheReplacedFileLater)
{
    fill("a 1\n");
    OpenDescriptor const old(open((path + ".db").c_str(), O_RDONLY));
    struct stat before = {};
    struct stat after = {};
    fstat(old.get(), &before);
    DatabaseHelper::addRecord(map, "b", "2");
    fstat(old.get(), &after);
    EXPECT_GT(after.st_mtim.tv_sec, before.st_mtim.tv_sec);
}

TEST_F(MapRoomOnHost, LeavesTheTimeOfAFileThatIsPlantedMeanwhile)
{
    fill("a 1\n");
    makeVictim();
    run("touch -d @1000000000 " + (tools / "victim.db"));
    std::string const outside = "/proc/" + std::to_string(getpid()) + "/root";
    standIn("ln -f " + outside + (tools / "victim.db") + " " + outside + path +
            ".db; exec $real \"$@\"");
    DatabaseHelper::addRecord(map, "b", "2");
    struct stat info = {};
    stat((tools / "victim.db").c_str(), &info);
    EXPECT_EQ(info.st_mtim.tv_sec, 1000000000);
    EXPECT_EQ(info.st_nlink, 1U); // it was planted, and replaced
    expectVictimUntouched();
    EXPECT_EQ(content(), "a\t1\nb\t2\n");
}

TEST_F(MapRoomOnHost, FollowsNoLinkAtTheIndexedFile)
{
    makeVictim();
    plant("ln -s " + (tools / "victim.db") + " " + path + ".db");
    for (auto const& change : changes)
        EXPECT_EQ(codeOf(change), ELOOP);
    expectVictimUntouched();
}

TEST_F(MapRoomOnHost, ReplacesALinkAtTheIndexedFileByAMap)
{
    makeVictim();
    plant("ln -s " + (tools / "victim.db") + " " + path + ".db");
    DatabaseHelper::replaceRecords(map, one.begin(), one.end());
    EXPECT_EQ(content(), "a\t1\n");
    EXPECT_FALSE(std::filesystem::is_symlink(path + ".db"));
    expectVictimUntouched();
}

TEST_F(MapRoomOnHost, RefusesAFileThatHasAnotherName)
{
    makeVictim();
    plant("ln " + (tools / "victim.db") + " " + path + ".db");
    for (auto const& change : changes)
        EXPECT_EQ(codeOf(change), EMLINK);
    expectVictimUntouched();
}

TEST_F(MapRoomOnHost, OpensNoFifoAtTheIndexedFile)
{
    plant("mkfifo " + path + ".db");
    for (auto const& change : changes)
        EXPECT_EQ(codeOf(change), EINVAL);
}

TEST_F(MapRoomOnHost, FollowsNoLinkAndOpensNoFifoAsText)
{
    writeFile(tools / "victim", "precious");
    for (std::string const& command :
         {"ln -s " + (tools / "victim") + " ", std::string("mkfifo ")}) {
        run(command + path);
        DatabaseHelper::replaceRecords(map, one.begin(), one.end());
        DatabaseHelper::filterRecords(map, keepAll);
        EXPECT_EQ(content(), "a\t1\n");
        EXPECT_EQ(readFile(tools / "victim"), "precious");
    }
}

TEST_F(MapRoomOnHost, FollowsNoLinkThatIsPlantedAtAnyMoment)
{
    makeVictim();
    std::string const db = path + ".db";
    pid_t const attacker = fork();
    if (attacker == 0)
        for (;;) {
            rename(db.c_str(), (db + ".aside.db").c_str());
            if (symlink((tools / "victim.db").c_str(), db.c_str()) != 0)
                unlink(db.c_str());
            unlink(db.c_str());
            rename((db + ".aside.db").c_str(), db.c_str());
        }
    for (int i = 0; i < 60; ++i) {
        try {
            changes[i % 3]();
        } catch (std::exception const&) {
        }
    }
    kill(attacker, SIGKILL);
    waitpid(attacker, nullptr, 0);
    expectVictimUntouched();
    run("rm -f " + db + " " + db + ".aside.db");
}

TEST_F(MapRoomOnHost, MakesItsRoomAnewAndRemovesThoseOfACrash)
{
    std::filesystem::create_directory(dir / ".map.room-1");
    writeFile(dir / ".map.room-1/map", "a 1\n");
    std::filesystem::create_directory(dir / ".map.room-2");
    run("chown 7 " + (dir / ".map.room-2"));
    DatabaseHelper::addRecord(map, "a", "1");
    EXPECT_FALSE(std::filesystem::exists(dir / ".map.room-1"));
    EXPECT_TRUE(std::filesystem::exists(dir / ".map.room-2"));
    run("rmdir " + (dir / ".map.room-2"));
}

TEST_F(MapRoomOnHost, IsNamedByItsDescriptorWhereNamespacesAreRefused)
{
    namespaces_are_refused = true;
    standIn("exec $real \"$@\"");
    DatabaseHelper::addRecord(map, "b", "2");
    DatabaseHelper::filterRecords(map, [](std::string& line) {
        line += "x";
        return true;
    });
    EXPECT_EQ(content(), "b\t2x\n");
    EXPECT_EQ(journal().find(map), std::string::npos);
    EXPECT_NE(journal().find("-r -i hash:/proc/self/fd/"), std::string::npos);
    EXPECT_EQ(rooms(), 0);
}

TEST_F(MapRoomOnHost, LeavesTheOldOrNewMapWheneverAllAreKilled)
{
    std::string old;
    std::string changed;
    for (int i = 10000; i < 30000; ++i) {
        std::string const name = std::to_string(i) + "@d.test\t";
        old += name + "x\n";
        changed += name + "xy\n";
    }
    fill(old);
    int unchanged = 0;
    for (int i = 0; i < 40; ++i) {
        pid_t const child = fork();
        if (child == 0) {
            setpgid(0, 0);
            DatabaseHelper::filterRecords(map, [](std::string& line) {
                line.resize(line.find('x') + 1);
                line += "y";
                return true;
            });
            _exit(0);
        }
        setpgid(child, child);
        usleep(static_cast<useconds_t>(i) * 10000);
        killpg(child, SIGKILL);
        int status = 0;
        waitpid(child, &status, 0);
        ChangeLock const ended(map); // waits for postmap, which has inherited the lock
        std::string const now = content();
        ASSERT_TRUE(now == old || now == changed) << i;
        unchanged += now == old ? 1 : 0;
    }
    EXPECT_GT(unchanged, 0);
    changes[2]();
    EXPECT_EQ(rooms(), 0);
}

TEST_F(MapRoomOnHost, NamesTheMapInDiagnosticsWhereNamespacesAreRefused)
{
    namespaces_are_refused = true;
    standIn("echo \"postmap: fatal: open ${3#hash:}.db\" >&2; exit 1");
    try {
        changes[0]();
        FAIL();
    } catch (PostfixConfigurationError const& e) {
        EXPECT_EQ(std::string(e.what()), "postmap: fatal: open " + path + ".db\n");
    }
}

TEST_F(MapRoomOnHost, RemovesTheTextOfACrashIfItIsRoots)
{
    writeFile(path, "a 1\n");
    changes[0]();
    EXPECT_FALSE(std::filesystem::exists(path));
    writeFile(path, "a 1\n");
    run("chown 7 " + path);
    changes[1]();
    EXPECT_TRUE(std::filesystem::exists(path));
    std::filesystem::remove(path);
}
