#include "lib/text/strlcpy.h"

#include <gtest/gtest.h>

TEST(Strlcpy, CopiesWhatFitsAndReturnsTheLengthOfTheSource)
{
    char text[] = "????????";
    EXPECT_EQ(strlcpy(text, "abc", 4), 3U);
    EXPECT_STREQ(text, "abc");
    EXPECT_EQ(text[4], '?');
}

TEST(Strlcpy, CutsWhatDoesNotFitAndReturnsTheWholeLength)
{
    char text[] = "????????";
    EXPECT_EQ(strlcpy(text, "abcdef", 4), 6U);
    EXPECT_STREQ(text, "abc");
    EXPECT_EQ(text[4], '?');
}

TEST(Strlcpy, WritesNothingIntoNoRoom)
{
    char text[] = "?";
    EXPECT_EQ(strlcpy(text, "abc", 0), 3U);
    EXPECT_STREQ(text, "?");
}
