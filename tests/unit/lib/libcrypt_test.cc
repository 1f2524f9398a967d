#include "lib/libcrypt.h"

#include <gtest/gtest.h>

namespace {

std::string md5(char const* digest, char const* text)
{
    char result[33];
    EXPECT_EQ(get_md5sum(digest, text, result), result);
    return result;
}

} // namespace

TEST(GetMd5sum, IsTheMd5OfBothTextsTogether)
{
    EXPECT_EQ(md5("ab", "c"), "900150983cd24fb0d6963f7d28e17f72");
    EXPECT_EQ(md5("abc", ""), "900150983cd24fb0d6963f7d28e17f72");
}

TEST(GetMd5sum, OfAnEmptyFirstArgumentIsThatOfTheSecond)
{
    EXPECT_EQ(md5("", "abc"), "900150983cd24fb0d6963f7d28e17f72");
    EXPECT_EQ(md5(nullptr, "abc"), "900150983cd24fb0d6963f7d28e17f72");
}

TEST(GetMd5sum, OfNothingIsTheMd5OfTheEmptyText)
{
    EXPECT_EQ(md5(nullptr, nullptr), "d41d8cd98f00b204e9800998ecf8427e");
}
