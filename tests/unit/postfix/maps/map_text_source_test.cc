#include "postfix/maps/database_helper.h"

#include "support/call_faults.h"
#include "support/map_test.h"
#include "support/mapping_faults.h"

#include <gtest/gtest.h>

#include <cstdint>
#include <filesystem>
#include <functional>
#include <ios>
#include <string>
#include <vector>

using namespace orvek::mail::postfix;

namespace {

class MapTextSourceOnHost : public MapTest
{
protected:
    MapTextSourceOnHost()
    {
        for (int i = 1000; i < 9000; ++i)
            many.emplace_back("user" + std::to_string(i) + "@d.test", std::string(60, 'x'));
    }

    static std::string contentWith(Records const& records)
    {
        std::string text;
        for (auto const& [key, value] : records)
            text += key + '\t' + value + '\n';
        return text;
    }

    // The path of the text source in the only room.
    std::string source() const
    {
        for (auto const& entry : std::filesystem::directory_iterator(dir.path()))
            if (entry.is_directory())
                return (entry.path() / "map").string();
        return "";
    }

    Records many; // more than one window of the text source
    std::function<void()> const rewrites[2] = {
        [this] { DatabaseHelper::replaceRecords(map, many.begin(), many.end()); },
        [this] { DatabaseHelper::filterRecords(map, [](std::string&) { return true; }); },
    };
};

} // namespace

TEST_F(MapTextSourceOnHost, HoldsARecordBeforeTheNextIsFiltered)
{
    fill("a 1\nb 2\nc 3\n");
    std::vector<std::string> seen;
    std::string kept;
    DatabaseHelper::filterRecords(map, [&](std::string& line) {
        seen.push_back(readFile(source()).substr(0, kept.size()));
        EXPECT_EQ(seen.back(), kept);
        kept += line + '\n';
        return true;
    });
    EXPECT_EQ(seen.size(), 3U);
}

TEST_F(MapTextSourceOnHost, GoesToTheRebuildWithNothingAfterItsLastRecord)
{
    standIn("[ $1 = -s ] || cp " + path + " $dir/text; exec $real \"$@\"");
    rewrites[0]();
    EXPECT_EQ(readFile(tools / "text").find('\0'), std::string::npos);
    EXPECT_EQ(content(), contentWith(many));
    rewrites[1]();
    EXPECT_EQ(readFile(tools / "text").find('\0'), std::string::npos);
    EXPECT_EQ(content(), contentWith(many));
}

TEST_F(MapTextSourceOnHost, IsWrittenInPiecesWhereItCannotBeMapped)
{
    standIn("[ $1 = -s ] || cp " + path + " $dir/text; exec $real \"$@\"");
    NoMappings const refused;
    for (auto const& rewrite : rewrites) {
        rewrite();
        EXPECT_EQ(readFile(tools / "text").find('\0'), std::string::npos);
        EXPECT_EQ(content(), contentWith(many));
    }
}

TEST_F(MapTextSourceOnHost, RaisesTheStreamsErrorWhenItsEndCannotBeCut)
{
    fill("old 1\n");
    for (auto const& rewrite : rewrites) {
        CallFailure const failure("ftruncate", EIO);
        EXPECT_THROW(rewrite(), std::ios_base::failure);
        EXPECT_EQ(content(), "old\t1\n");
    }
}
