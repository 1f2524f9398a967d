#include "postfix/maps/map_dump.h"

#include "support/map_test.h"
#include "util/errors.h"

#include <gtest/gtest.h>

#include <stdexcept>

using namespace orvek::mail::postfix;

namespace {

class MapDumpOnHost : public MapTest
{
protected:
    std::string dump()
    {
        std::string text;
        MapRoom room(map);
        room.borrow(MapUse::read);
        readMap(room, [&](auto const& piece) { text.append(piece.begin(), piece.end()); });
        return text;
    }
};

} // namespace

TEST_F(MapDumpOnHost, GivesEachRecordOfTheMapAndChangesNone)
{
    fill("a b\n");

    EXPECT_EQ(dump(), "a\tb\n");
    EXPECT_EQ(content(), "a\tb\n");
    EXPECT_FALSE(std::filesystem::exists(path));
}

TEST_F(MapDumpOnHost, RaisesThePostmapsDiagnostics)
{
    standIn("echo 'postmap: fatal: no' >&2; exit 1");

    EXPECT_THROW(dump(), PostfixConfigurationError);
}

TEST_F(MapDumpOnHost, RaisesTheReceiversExceptionWhenPostmapHasEnded)
{
    standIn("echo one; sleep 0.1; echo two; echo >> $dir/ended");
    int calls = 0;
    MapRoom const room(map);

    EXPECT_THROW(readMap(room,
                         [&](auto const&) {
                             ++calls;
                             throw std::length_error("no");
                         }),
                 std::length_error);
    EXPECT_EQ(calls, 1);
    EXPECT_EQ(readFile(tools / "ended"), "\n");
}

TEST_F(MapDumpOnHost, RaisesForMoreRecordsThanTheFileHolds)
{
    fill("a b\n");
    standIn("yes a b | head -n 4000");

    EXPECT_THROW(dump(), PostfixDatabaseError);
}
