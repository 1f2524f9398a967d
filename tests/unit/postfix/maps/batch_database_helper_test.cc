#include "postfix/maps/batch_database_helper.h"

#include "support/map_test.h"
#include "util/errors.h"

#include <gtest/gtest.h>

#include <cstdlib>
#include <functional>
#include <new>
#include <string>
#include <utility>
#include <vector>

using namespace orvek::mail::postfix;

namespace {

// Whether the next allocation fails.
bool no_memory = false;

class BatchDatabaseHelperOnHost : public MapTest
{
protected:
    void SetUp() override
    {
        MapTest::SetUp();
        if (!HasFatalFailure())
            std::filesystem::copy_file(path + ".db", dir / "other.db");
    }

    std::string otherContent() const { return contentOf(other); }

    std::string const other = "hash:" + (dir / "other");
    Records const two{{"b", "2"}, {"a", "1"}};
    std::vector<std::string> const keys{"a", "nowhere"};
};

} // namespace

[[gnu::noinline]] void* operator new(size_t size)
{
    if (void* const memory = std::exchange(no_memory, false) ? nullptr : malloc(size))
        return memory;
    throw std::bad_alloc();
}

[[gnu::noinline]] void operator delete(void* memory) noexcept
{
    free(memory);
}

[[gnu::noinline]] void operator delete(void* memory, size_t) noexcept
{
    free(memory);
}

TEST_F(BatchDatabaseHelperOnHost, AppliesNothingBeforeTheCommit)
{
    fill("a 0\n");
    BatchDatabaseHelper batch(BatchContent::added, BatchTiming::at_commit);
    batch.addChanges(map, two.begin(), two.end());
    batch.removeChanges(map, keys.begin(), keys.end());
    EXPECT_EQ(content(), "a\t0\n");
    batch.commit();
    EXPECT_EQ(content(), "b\t2\n");
}

TEST_F(BatchDatabaseHelperOnHost, RunsOncePerMapByNameAndRemovesLast)
{
    standIn("echo \"$(tr '\\n' , )\" >> $dir/journal");
    BatchDatabaseHelper batch(BatchContent::added, BatchTiming::at_commit);
    batch.removeChanges(other, keys.begin(), keys.end());
    batch.removeChanges(map, keys.begin(), keys.begin() + 1);
    batch.addChange(other, "x", "1");
    batch.addChange(map, "y", "1");
    batch.addChanges(map, two.begin(), two.end());
    batch.removeChanges(map, keys.begin() + 1, keys.end());
    batch.commit();
    EXPECT_EQ(journal(), "-r -i " + map + "\ny 1,b 2,a 1,\n-r -i " + other + "\nx 1,\n-d - " + map +
                             "\na,nowhere,\n-d - " + other + "\na,nowhere,\n");
}

TEST_F(BatchDatabaseHelperOnHost, LeavesOutAKeyRemovedBeforeItsAddition)
{
    BatchDatabaseHelper batch(BatchContent::added, BatchTiming::at_commit);
    batch.removeChanges(map, keys.begin(), keys.end());
    batch.addChanges(map, two.begin(), two.end());
    batch.commit();
    EXPECT_EQ(content(), "b\t2\n");
}

TEST_F(BatchDatabaseHelperOnHost, StartsNothingForACommitOfNothing)
{
    standIn("");
    BatchDatabaseHelper batch(BatchContent::whole, BatchTiming::at_commit);
    batch.commit();
    EXPECT_EQ(journal(), "");
}

TEST_F(BatchDatabaseHelperOnHost, DoesNothingInASecondCommit)
{
    standIn("exec $real \"$@\"");
    BatchDatabaseHelper batch(BatchContent::added, BatchTiming::at_commit);
    batch.addChange(map, "a", "1");
    batch.removeChanges(map, keys.begin() + 1, keys.end());
    batch.commit();
    std::string const first = journal();
    batch.commit();
    EXPECT_EQ(journal(), first);
    EXPECT_EQ(content(), "a\t1\n");
}

TEST_F(BatchDatabaseHelperOnHost, DropsWhatIsNotCommitted)
{
    standIn("");
    {
        BatchDatabaseHelper batch(BatchContent::added, BatchTiming::at_commit);
        batch.addChange(map, "a", "1");
        batch.removeChanges(map, keys.begin(), keys.end());
    }
    EXPECT_EQ(journal(), "");
}

TEST_F(BatchDatabaseHelperOnHost, MakesItsRecordsTheWholeMapUnlessItIsIncremental)
{
    fill("old 0\n");
    BatchDatabaseHelper batch(BatchContent::whole, BatchTiming::at_commit);
    batch.addChange(map, "c", "3");
    batch.addChanges(map, two.begin(), two.end());
    batch.commit();
    EXPECT_EQ(content(), "a\t1\nb\t2\nc\t3\n");
}

TEST_F(BatchDatabaseHelperOnHost, EmptiesTheMapForNoRecordsUnlessItIsIncremental)
{
    fill("old 0\n");
    BatchDatabaseHelper incremental(BatchContent::added, BatchTiming::at_commit);
    incremental.addChanges(map, two.end(), two.end());
    incremental.commit();
    EXPECT_EQ(content(), "old\t0\n");
    BatchDatabaseHelper whole(BatchContent::whole, BatchTiming::at_commit);
    whole.addChanges(map, two.end(), two.end());
    whole.commit();
    EXPECT_EQ(content(), "");
}

TEST_F(BatchDatabaseHelperOnHost, AppliesEachChangeAtOnceWhenImmediate)
{
    fill("old 0\na 0\n");
    BatchDatabaseHelper batch(BatchContent::added, BatchTiming::at_once);
    batch.addChange(map, "c", "3");
    EXPECT_EQ(content(), "a\t0\nc\t3\nold\t0\n");
    batch.addChanges(map, two.begin(), two.end());
    EXPECT_EQ(content(), "a\t1\nb\t2\nc\t3\nold\t0\n");
    batch.removeChanges(map, keys.begin(), keys.end());
    EXPECT_EQ(content(), "b\t2\nc\t3\nold\t0\n");
    standIn("");
    batch.commit();
    EXPECT_EQ(journal(), "");
}

TEST_F(BatchDatabaseHelperOnHost, ReplacesTheMapAtOnceWhenImmediateAndNotIncremental)
{
    fill("old 0\n");
    BatchDatabaseHelper batch(BatchContent::whole, BatchTiming::at_once);
    batch.addChanges(map, two.begin(), two.end());
    EXPECT_EQ(content(), "a\t1\nb\t2\n");
    batch.removeChanges(map, keys.begin(), keys.end());
    EXPECT_EQ(content(), "b\t2\n");
}

TEST_F(BatchDatabaseHelperOnHost, StopsAtTheFirstFailureAndKeepsTheAdditions)
{
    standIn("[ \"${!#}\" = " + other + " -a ! -e $dir/mended ] && exit 1; exec $real \"$@\"");
    std::string const third = "hash:" + (dir / "third");
    BatchDatabaseHelper batch(BatchContent::added, BatchTiming::at_commit);
    batch.addChange(map, "a", "1");
    batch.addChange(other, "a", "2");
    batch.addChange(third, "a", "3");
    batch.removeChanges(map, keys.begin(), keys.end());
    EXPECT_THROW(batch.commit(), PostfixConfigurationError);
    EXPECT_EQ(journal(), "-r -i " + map + "\n-r -i " + other + "\n");
    EXPECT_EQ(content(), "a\t1\n");
    EXPECT_EQ(otherContent(), "");

    writeFile(tools / "mended", "");
    batch.commit();
    EXPECT_EQ(content(), "");
    EXPECT_EQ(otherContent(), "a\t2\n");
    EXPECT_EQ(contentOf(third), "a\t3\n");
}

TEST_F(BatchDatabaseHelperOnHost, KeepsOnlyTheRemovalsWhenOneOfThemFails)
{
    standIn("[ $1 = -d -a ! -e $dir/mended ] && kill -9 $$; exec $real \"$@\"");
    BatchDatabaseHelper batch(BatchContent::added, BatchTiming::at_commit);
    batch.addChanges(map, two.begin(), two.end());
    batch.removeChanges(map, keys.begin(), keys.end());
    EXPECT_THROW(batch.commit(), PostfixDatabaseError);
    EXPECT_EQ(content(), "a\t1\nb\t2\n");

    writeFile(tools / "mended", "");
    batch.commit();
    EXPECT_EQ(journal(), "-r -i " + map + "\n-d - " + map + "\n-d - " + map + "\n");
    EXPECT_EQ(content(), "b\t2\n");
}

TEST(BatchDatabaseHelper, SaysThatThereIsNoRoomForAnotherMap)
{
    BatchDatabaseHelper batch(BatchContent::added, BatchTiming::at_commit);
    std::string const map = "map";
    std::vector<std::string> const keys;
    int refused = 0;
    std::function<void()> const changes[] = {
        [&] { batch.addChange(map, "key", "value"); },
        [&] { batch.removeChanges(map, keys.begin(), keys.end()); },
    };
    for (auto const& change : changes) {
        try {
            no_memory = true;
            change();
        } catch (PostfixDatabaseError const& e) {
            EXPECT_STREQ(e.what(), "unable to form record cache");
            ++refused;
        }
        no_memory = false;
    }
    EXPECT_EQ(refused, 2);
}
