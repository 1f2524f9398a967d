#include "postfix/maps/record_text.h"

#include "util/errors.h"

#include <gtest/gtest.h>

#include <string>

using namespace orvek::mail::postfix;

namespace {

template<class Code>
std::string refusal(Code const& code)
{
    try {
        code();
    } catch (PostfixDatabaseError const& e) {
        return e.what();
    }
    return "allowed";
}

std::string ofKey(std::string const& key)
{
    return refusal([&] { requireKey(key); });
}

std::string ofValue(std::string const& value)
{
    return refusal([&] { requireValue(value); });
}

} // namespace

TEST(RecordText, AllowsTheKeysOfTheMaps)
{
    for (char const* const key :
         {"d.test", "a@d.test", "@d.test", "o'brien@d.test", "_orvek_bounce_d.test", "a#b@d.test",
          "a|b$c;d@d.test", "\xc3\xa4@d.test", "UPPER@d.test"})
        EXPECT_EQ(ofKey(key), "allowed") << key;
}

TEST(RecordText, RefusesAnEmptyKey)
{
    EXPECT_EQ(ofKey(""), "the key '' of a map must not be empty");
}

TEST(RecordText, RefusesAKeyThatPostmapTakesForAComment)
{
    EXPECT_EQ(ofKey("#a@d.test"), "the key '#a@d.test' of a map must not begin with '#'");
}

TEST(RecordText, RefusesEveryControlByteAndBlankInAKey)
{
    for (int byte = 0; byte <= 0x20; ++byte)
        EXPECT_NE(ofKey(std::string("a") + static_cast<char>(byte) + "b"), "allowed") << byte;
    EXPECT_EQ(ofKey("ceo@v.test x"),
              "the key 'ceo@v.test x' of a map must not hold a blank or a control character");
    EXPECT_EQ(ofKey("a\x7f\nb"),
              "the key 'a\\x7f\\nb' of a map must not hold a blank or a control character");
}

TEST(RecordText, ShowsTheControlBytesOfARefusedKey)
{
    EXPECT_EQ(ofKey("x\nERROR: forged\x1b@d.test"),
              "the key 'x\\nERROR: forged\\x1b@d.test' of a map must not hold a blank or a control "
              "character");
}

TEST(RecordText, RefusesAKeyThatReachesIntoTheValue)
{
    EXPECT_EQ(ofKey("a\"b@d.test"),
              "the key 'a\"b@d.test' of a map must not leave a quote open or end in a backslash");
    EXPECT_NE(ofKey("a@d.test\\"), "allowed");
    EXPECT_NE(ofKey("\"a\\\"@d.test"), "allowed");
    EXPECT_EQ(ofKey("\"a\"@d.test"), "allowed");
    EXPECT_EQ(ofKey("a\\b\\\"@d.test"), "allowed");
}

TEST(RecordText, RefusesOnlyANewlineInAValue)
{
    EXPECT_EQ(ofValue("a@d.test, \"|/bin/x 'a b'\"\t"), "allowed");
    EXPECT_EQ(ofValue("x\nceo@v.test y"),
              "the value 'x\\nceo@v.test y' of a map must not hold a newline");
}
