#include "postfix/maps/room.h"

#include "lib/beneath/place.h"
#include "postfix/maps/map_leftovers.h"
#include "support/map_changes_test.h"

#include <gtest/gtest.h>

#include <cerrno>
#include <cstdlib>
#include <filesystem>
#include <optional>
#include <string>
#include <utility>

#include <sys/wait.h>
#include <unistd.h>

using namespace orvek::mail::postfix;

namespace {

bool entering_is_refused = false;

class RoomOnHost : public MapChangesTest
{
protected:
    void TearDown() override
    {
        entering_is_refused = false;
        MapChangesTest::TearDown();
    }

    // Has each postmap write down its room and its mount namespace.
    void noteViews()
    {
        standIn("stat -c %i " + dir.path() +
                " >> $dir/rooms; readlink /proc/self/ns/mnt >> "
                "$dir/spaces; exec $real \"$@\"");
    }

    // The number of different lines in a file of the stand-in.
    std::string kindsOf(std::string const& file) const
    {
        run("sort -u " + (tools / file) + " | wc -l > " + (tools / "kinds"));
        return readFile(tools / "kinds");
    }

    std::string nameOfRoom() const
    {
        for (auto const& entry : std::filesystem::directory_iterator(dir.path()))
            if (entry.is_directory())
                return entry.path();
        return "none";
    }

    std::pair<std::string, std::string> const one{"b", "2"};
};

} // namespace

extern "C" {
int __real_setns(int fd, int type);
int __wrap_setns(int fd, int type)
{
    if (!entering_is_refused)
        return __real_setns(fd, type);
    errno = EPERM;
    return -1;
}
}

TEST_F(RoomOnHost, IsOneForAllChangesWhileAKeeperLives)
{
    {
        RoomKeeper const keeper;
        noteViews();
        DatabaseHelper::addRecord(map, "b", "2");
        DatabaseHelper::addRecord(map, "c", "3");
        changes[2]();
        EXPECT_EQ(rooms(), 1);
        EXPECT_TRUE(std::filesystem::is_empty(nameOfRoom()));
    }
    EXPECT_EQ(kindsOf("rooms"), "1\n");
    EXPECT_EQ(kindsOf("spaces"), "1\n");
    EXPECT_EQ(content(), "b\t2\nc\t3\n");
    EXPECT_EQ(rooms(), 0);
}

TEST_F(RoomOnHost, IsOneForAllMapsOfADirectory)
{
    std::string const other = "hash:" + (dir / "other");
    {
        RoomKeeper const keeper;
        changes[0]();
        std::string const first = nameOfRoom();
        DatabaseHelper::replaceRecords(other, &one, &one + 1);
        EXPECT_EQ(nameOfRoom(), first);
        EXPECT_EQ(rooms(), 1);
    }
    EXPECT_EQ(content(), "a\t1\n");
    EXPECT_EQ(contentOf(other), "b\t2\n");
}

TEST_F(RoomOnHost, GoesWithItsChangeWithoutAKeeper)
{
    changes[0]();
    EXPECT_EQ(rooms(), 0);
    changes[1]();
    EXPECT_EQ(rooms(), 0);
}

TEST_F(RoomOnHost, IsAnotherOneInAnotherDirectory)
{
    TempDir const elsewhere;
    std::string const other = "hash:" + (elsewhere / "map");
    RoomKeeper const keeper;
    changes[0]();
    DatabaseHelper::replaceRecords(other, &one, &one + 1);
    EXPECT_EQ(rooms(), 0);
    EXPECT_EQ(contentOf(other), "b\t2\n");
}

TEST_F(RoomOnHost, IsMadeAnewWhenSomebodyHasRemovedOrRenamedIt)
{
    RoomKeeper const keeper;
    changes[0]();
    std::filesystem::remove(nameOfRoom());
    DatabaseHelper::addRecord(map, "b", "2");
    std::string const aside = dir / "aside";
    std::filesystem::rename(nameOfRoom(), aside);
    DatabaseHelper::addRecord(map, "c", "3");
    EXPECT_EQ(content(), "a\t1\nb\t2\nc\t3\n");
    std::filesystem::remove(aside);
}

TEST_F(RoomOnHost, IsMadeAnewWhenItCouldNotBeEmptied)
{
    RoomKeeper const keeper;
    changes[0]();
    std::string const first = nameOfRoom();
    run("mkdir " + first + "/map && mv " + first + " " + first + "0");
    run("mv " + first + "0 " + first);
    DatabaseHelper::addRecord(map, "b", "2");
    DatabaseHelper::addRecord(map, "c", "3");
    EXPECT_EQ(content(), "a\t1\nb\t2\nc\t3\n");
    EXPECT_EQ(rooms(), 2);
    std::filesystem::remove_all(first);
}

TEST_F(RoomOnHost, IsNoLeftoverAsLongAsItsToolLives)
{
    OpenDescriptor const directory = open_root(dir.path().c_str());
    std::optional<RoomKeeper> keeper(std::in_place);
    changes[0]();
    std::string const name = nameOfRoom();
    clearLeftovers(directory.get(), "map");
    EXPECT_TRUE(std::filesystem::exists(name));
    keeper.reset();
    std::filesystem::create_directory(name);
    clearLeftovers(directory.get(), "map");
    EXPECT_FALSE(std::filesystem::exists(name));
}

TEST_F(RoomOnHost, GoesWhenTheCommandEndsByExit)
{
    pid_t const child = fork();
    if (child == 0) {
        RoomKeeper const keeper;
        changes[0]();
        exit(rooms());
    }
    int status = 0;
    waitpid(child, &status, 0);
    EXPECT_EQ(WEXITSTATUS(status), 1);
    EXPECT_EQ(rooms(), 0);
}

TEST_F(RoomOnHost, StaysWhenAForkedChildEndsByExit)
{
    RoomKeeper const keeper;
    changes[0]();
    pid_t const child = fork();
    if (child == 0)
        exit(0);
    waitpid(child, nullptr, 0);
    EXPECT_EQ(rooms(), 1);
}

TEST_F(RoomOnHost, IsNamedByItsDescriptorWhereNobodyMayEnterNamespaces)
{
    RoomKeeper const keeper;
    standIn("exec $real \"$@\"");
    changes[0]();
    entering_is_refused = true;
    DatabaseHelper::addRecord(map, "b", "2");
    EXPECT_EQ(content(), "a\t1\nb\t2\n");
    EXPECT_NE(journal().find("-r -i hash:/proc/self/fd/"), std::string::npos);
}

TEST_F(RoomOnHost, OfAnotherMapKeepsNoFileOfAKilledChange)
{
    fill("a 1\n");
    std::string const room = dir / ".other.room-1";
    std::filesystem::create_directory(room);
    std::filesystem::create_hard_link(path + ".db", room + "/map.db");
    writeFile(room + "/map", "a 1\n");
    writeFile(room + "/third.db", "");
    DatabaseHelper::addRecord(map, "b", "2");
    EXPECT_EQ(content(), "a\t1\nb\t2\n");
    EXPECT_FALSE(std::filesystem::exists(room + "/map"));
    EXPECT_TRUE(std::filesystem::exists(room + "/third.db"));
    std::filesystem::remove_all(room);
}
