#include "postfix/maps/map_lookup.h"

#include "support/map_test.h"
#include "util/errors.h"

#include <gtest/gtest.h>

using namespace orvek::mail::postfix;

using MapLookupOnHost = MapTest;

TEST_F(MapLookupOnHost, FindsTheRecordsOfAllKeysInOneRun)
{
    fill("a one\nb two, three\nc four\n");
    standIn("exec $real \"$@\"");

    EXPECT_EQ(findRecords(map, {"b", "none", "a"}),
              (FoundRecords{{"a", "one"}, {"b", "two, three"}}));
    EXPECT_EQ(journal(), "-q - " + map + "\n");
}

TEST_F(MapLookupOnHost, ComparesKeysInLowerCaseAndReturnsThemAsGiven)
{
    fill("a one\n");

    EXPECT_EQ(findRecords(map, {"A"}), (FoundRecords{{"A", "one"}}));
}

TEST_F(MapLookupOnHost, FindsNothingWithoutKeysOrRecords)
{
    fill("a one\n");
    standIn("echo 'postmap: fatal: no' >&2; exit 1");

    EXPECT_EQ(findRecords(map, {}), FoundRecords());
    postmap.remove();
    EXPECT_EQ(findRecords(map, {"none"}), FoundRecords());
}

TEST_F(MapLookupOnHost, FindsNothingInAMissingMap)
{
    std::filesystem::remove(path + ".db");

    EXPECT_EQ(findRecords(map, {"a"}), FoundRecords());
}

TEST_F(MapLookupOnHost, StartsNothingForKeysThatAreNowhereInTheFile)
{
    fill("anna one\n");
    standIn("exec $real \"$@\"");

    EXPECT_EQ(findRecords(map, {"bertha"}), FoundRecords());
    EXPECT_EQ(findRecords(map, {"annabel", "anna"}), (FoundRecords{{"anna", "one"}}));
    EXPECT_EQ(journal(), "-q - " + map + "\n");
}

TEST_F(MapLookupOnHost, RaisesWhatPostmapSays)
{
    fill("a one\n");
    standIn("echo 'postmap: fatal: no' >&2; exit 1");

    EXPECT_THROW(findRecords(map, {"a"}), PostfixDatabaseError);
    standIn("kill -KILL $$");
    EXPECT_THROW(findRecords(map, {"a"}), PostfixDatabaseError);
}

TEST_F(MapLookupOnHost, RefusesAKeyThatIsSeveralLines)
{
    EXPECT_THROW(findRecords(map, {"a\nb"}), PostfixDatabaseError);
}
