#include "postfix/maps/key_bytes.h"

#include "support/map_test.h"

#include <gtest/gtest.h>

#include <fcntl.h>
#include <sys/file.h>
#include <unistd.h>

using namespace orvek::mail::postfix;

namespace {

class KeyBytesOnHost : public MapTest
{
protected:
    using Keys = std::vector<std::string>;

    std::string indexed() const { return path + ".db"; }
};

} // namespace

TEST_F(KeyBytesOnHost, AsksOnlyForKeysThatMayBeThere)
{
    fill("anna@d.test x\n");

    EXPECT_EQ(keysToAsk(map, {"anna@e.test", "anna@d.test", "anna@d.tes"}),
              (Keys{"anna@d.test", "anna@d.tes"}));
    EXPECT_EQ(keysToAsk(map, {"bertha@d.test"}), Keys());
    EXPECT_EQ(keysToAsk(map, {}), Keys());
}

TEST_F(KeyBytesOnHost, FindsKeysAsPostfixComparesThem)
{
    fill("Anna@D.test x\n");

    EXPECT_EQ(keysToAsk(map, {"anNa@d.tesT"}), Keys{"anNa@d.tesT"});
}

TEST_F(KeyBytesOnHost, MissesNoKeyOfALargeMap)
{
    for (std::string const type : {"hash", "btree"}) {
        SCOPED_TRACE(type);
        std::string records;
        Keys keys;
        for (int i = 0; i < 20'000; ++i) {
            // Short and long ones, so that they begin everywhere in the pieces that are read.
            keys.push_back("user" + std::string(i % 241, 'x') + std::to_string(i) + "@d.test");
            records += keys.back() + " value\n";
        }
        writeFile(path, records);
        run(real + " " + type + ":" + path);
        std::filesystem::remove(path);
        ASSERT_GT(std::filesystem::file_size(indexed()), 1U << 20);
        EXPECT_EQ(keysToAsk(type + ":" + path, keys), keys);
    }
}

TEST_F(KeyBytesOnHost, KnowsThatAMissingMapHasNone)
{
    std::filesystem::remove(indexed());

    EXPECT_EQ(keysToAsk(map, {"anna@d.test"}), Keys());
}

TEST_F(KeyBytesOnHost, LeavesWhatItCannotTellToPostmap)
{
    fill("anna@d.test x\n");
    Keys const one{"none@d.test"};
    EXPECT_EQ(keysToAsk(map, one), Keys());

    EXPECT_EQ(keysToAsk("texthash:" + path, one), one);
    for (Keys const& keys : {Keys{"none@d.test", "other@d.test"}, Keys{"n\xc3\xb6ne@d.test"},
                             Keys{std::string(256, 'n')}})
        EXPECT_EQ(keysToAsk(map, keys), keys);
    std::filesystem::resize_file(indexed(), 17U << 20);
    EXPECT_EQ(keysToAsk(map, one), one);
    std::filesystem::remove(indexed());
    std::filesystem::create_symlink("/dev/zero", indexed());
    EXPECT_EQ(keysToAsk(map, one), one);
}

TEST_F(KeyBytesOnHost, DoesNotWaitForALockedFile)
{
    Keys const one{"none@d.test"};
    int const file = open(indexed().c_str(), O_RDONLY | O_CLOEXEC);
    ASSERT_EQ(flock(file, LOCK_EX), 0);
    EXPECT_EQ(keysToAsk(map, one), one);
    close(file);
    EXPECT_EQ(keysToAsk(map, one), Keys());
}
