#include "postfix/maps/saved_map.h"

#include "postfix/maps/database_helper.h"
#include "postfix/maps/map_lookup.h"
#include "support/map_test.h"

#include <gtest/gtest.h>

#include <string>

using namespace orvek::mail::postfix;

namespace {

class SavedMapOnHost : public MapTest
{
protected:
    void SetUp() override
    {
        MapTest::SetUp();
        for (int i = 100; i < 150; ++i)
            records += std::to_string(i) + "\tx\n";
    }

    // Leaves this map, and a copy with all records, as a kill of an earlier version does.
    void leave(std::string const& held)
    {
        fill(records);
        std::filesystem::rename(path + ".db", copy);
        fill(held);
    }

    // What a change says of it.
    std::string change()
    {
        testing::internal::CaptureStderr();
        DatabaseHelper::addRecord(map, "new", "1");
        return testing::internal::GetCapturedStderr();
    }

    bool hasCopy() const { return std::filesystem::exists(copy); }

    std::string const copy = path + ".db.saved";
    std::string records;
};

} // namespace

TEST_F(SavedMapOnHost, PutsBackTheCopyOfAMapWithoutRecords)
{
    leave("");
    EXPECT_EQ(change(), path + " had lost its records: put back from a copy with 50\n");
    EXPECT_EQ(content(), records + "new\t1\n");
    EXPECT_FALSE(hasCopy());
}

TEST_F(SavedMapOnHost, PutsBackTheCopyOfAMapThatIsBroken)
{
    for (std::string const& command :
         {"head -c 100 /dev/zero > " + path + ".db", "rm " + path + ".db"}) {
        leave("");
        run(command);
        EXPECT_NE(change(), "");
        EXPECT_EQ(content(), records + "new\t1\n");
        EXPECT_FALSE(hasCopy());
    }
}

TEST_F(SavedMapOnHost, IsSettledBeforeALookToo)
{
    leave("");
    testing::internal::CaptureStderr();
    EXPECT_EQ(findRecords(map, {"100", "none"}), (FoundRecords{{"100", "x"}}));
    EXPECT_EQ(testing::internal::GetCapturedStderr(),
              path + " had lost its records: put back from a copy with 50\n");
    EXPECT_FALSE(hasCopy());
}

TEST_F(SavedMapOnHost, KeepsWhatAMapHasHadSinceItsLoss)
{
    leave("100 changed\nlate 2\n");
    change();
    std::string expected = records + "late\t2\nnew\t1\n";
    EXPECT_EQ(content(), expected.replace(0, 5, "100\tchanged"));
}

TEST_F(SavedMapOnHost, RemovesTheCopyOfAWholeMap)
{
    leave("a 1\nb 2\nc 3\nd 4\ne 5\n");
    EXPECT_EQ(change(), "");
    EXPECT_EQ(content(), "a\t1\nb\t2\nc\t3\nd\t4\ne\t5\nnew\t1\n");
    EXPECT_FALSE(hasCopy());
}

TEST_F(SavedMapOnHost, RemovesABrokenCopyBesideAWholeMap)
{
    leave("");
    run("head -c 100 /dev/zero > " + copy);
    EXPECT_EQ(change(), "");
    EXPECT_EQ(content(), "new\t1\n");
    EXPECT_FALSE(hasCopy());
}

TEST_F(SavedMapOnHost, LeavesBothWhenNeitherOpens)
{
    leave("");
    run("head -c 100 /dev/zero > " + copy + " && cp " + copy + " " + path + ".db");
    EXPECT_ANY_THROW(DatabaseHelper::filterRecords(map, [](std::string&) { return true; }));
    EXPECT_TRUE(hasCopy());
    std::filesystem::remove(copy);
}

TEST_F(SavedMapOnHost, HeedsNoCopyThatIsNotRootsAlone)
{
    for (std::string const& command :
         {"chown 7 " + copy, "ln " + copy + " " + (tools / "other"),
          "mv " + copy + " " + (tools / "moved") + " && ln -s " + (tools / "moved") + " " + copy}) {
        leave("");
        run(command);
        EXPECT_EQ(change(), "");
        EXPECT_EQ(content(), "new\t1\n");
        EXPECT_TRUE(std::filesystem::is_symlink(copy) || hasCopy());
        std::filesystem::remove(copy);
    }
}

TEST_F(SavedMapOnHost, RemovesACopyThatWasNotFinished)
{
    writeFile(copy + ".tmp", "half");
    change();
    EXPECT_FALSE(std::filesystem::exists(copy + ".tmp"));
}

TEST_F(SavedMapOnHost, PutsBackTheCopyBeforeALook)
{
    leave("");
    run("head -c 5000 /dev/urandom > " + path + ".db");
    testing::internal::CaptureStderr();
    EXPECT_EQ(findRecords(map, {"100"}), (FoundRecords{{"100", "x"}}));
    EXPECT_NE(testing::internal::GetCapturedStderr(), "");
    EXPECT_FALSE(hasCopy());
}

TEST_F(SavedMapOnHost, PutsBackTheCopyOfAMapWithoutAnEnd)
{
    leave("");
    std::string const pieces = "[ $1 != -s ] || [ $(stat -c %s " + path +
                               ".db) != 777 ] || "
                               "{ yes 'a 1' | head -c 2000; exit 0; }; ";
    standIn(pieces + "exec $real \"$@\"");
    run("truncate -s 777 " + path + ".db");
    EXPECT_NE(change(), "");
    EXPECT_EQ(content(), records + "new\t1\n");
}

TEST_F(SavedMapOnHost, KeepsBothUntilTheMergedMapIsInPlace)
{
    leave("late 2\n");
    standIn("[ $1 != -r ] || exit 1; exec $real \"$@\"");
    testing::internal::CaptureStderr();
    EXPECT_ANY_THROW(DatabaseHelper::addRecord(map, "new", "1"));
    testing::internal::GetCapturedStderr();
    EXPECT_EQ(content(), "late\t2\n");
    EXPECT_TRUE(hasCopy());
    postmap.remove();
    change();
    EXPECT_EQ(content(), records + "late\t2\nnew\t1\n");
}
