#include "lib/text/orvek_chch.h"

#include "support/child_run.h"
#include "support/memory_faults.h"
#include "support/report.h"

#include <gtest/gtest.h>

namespace {

std::string replaced(char const* src, char const* from, char const* to, size_t n)
{
    char dst[64] = {};
    EXPECT_EQ(strn_replace(src, dst, from, to, n), dst);
    return dst;
}

std::string trimmed(std::string text)
{
    return orvek_trim(text.data());
}

} // namespace

TEST(OrvekChch, ReplacesACharacterInACopy)
{
    char src[] = "a.b.c";
    char dst[] = "????????";
    EXPECT_EQ(orvek_chch(src, dst, '.', '/'), dst);
    EXPECT_STREQ(dst, "a/b/c");
    EXPECT_STREQ(src, "a.b.c");
}

TEST(OrvekChch, ReplacesInPlaceWithoutATarget)
{
    char src[] = "a.b";
    EXPECT_EQ(orvek_chch(src, nullptr, '.', '/'), src);
    EXPECT_STREQ(src, "a/b");
}

TEST(StrnReplace, ReplacesAllOccurrences)
{
    EXPECT_EQ(replaced("one two one", "one", "three", 64), "three two three");
    EXPECT_EQ(replaced("aaa", "aa", "b", 64), "ba");
    EXPECT_EQ(replaced("abc", "b", "", 64), "ac");
    EXPECT_EQ(replaced("abc", "x", "y", 64), "abc");
}

TEST(StrnReplace, DropsWhatGoesBeyondTheRoom)
{
    EXPECT_EQ(replaced("a-b", "-", "12345", 5), "a123");
    EXPECT_EQ(replaced("abcdef", "x", "y", 4), "abc");
    EXPECT_EQ(replaced("abc", "x", "y", 4), "abc");
}

TEST(StrnReplace, MayWorkInPlace)
{
    char text[16] = "a-b";
    EXPECT_EQ(strn_replace(text, text, "-", "+++", sizeof text), text);
    EXPECT_STREQ(text, "a+++b");
    EXPECT_EQ(strn_replace(text, text, "", "x", sizeof text), text);
    EXPECT_STREQ(text, "a+++b");
}

TEST(StrnReplace, GivesNullForANullTarget)
{
    EXPECT_EQ(strn_replace("a", nullptr, "a", "b", 8), nullptr);
}

TEST(StrnReplace, WritesNothingIntoNoRoom)
{
    EXPECT_EQ(replaced("abc", "a", "b", 0), "");
}

TEST(StrnReplace, CopiesLikeStrncpyWhenThereIsNothingToLookFor)
{
    char text[] = "????????";
    EXPECT_EQ(strn_replace("ab", text, "", "x", 5), text);
    EXPECT_EQ(std::string(text, 8), std::string("ab\0\0\0???", 8));
    EXPECT_EQ(strn_replace("abcdef", text, "", "x", 4), text);
    EXPECT_EQ(std::string(text, 8), std::string("abcd\0???", 8));
}

TEST(StrnReplace, CopiesWithoutReplacingWhenThereIsNoMemory)
{
    auto const run = inChild([] {
        char dst[8] = {};
        AllocationFailure const failing(1);
        strn_replace("a-b-c", dst, "-", "+", 4);
        return strcmp(dst, "a-b");
    });
    EXPECT_EQ(run.status, 0);
    EXPECT_EQ(run.err,
              withErrno(std::string("strn_replace(): ") + strerror(ENOMEM) + "\n", ENOMEM));
}

TEST(OrvekTrim, RemovesWhiteSpaceAtBothEnds)
{
    EXPECT_EQ(trimmed(" \t a b \r\n"), "a b");
    EXPECT_EQ(trimmed("a"), "a");
}

TEST(OrvekTrim, GivesAnEmptyStringForWhiteSpaceAlone)
{
    EXPECT_EQ(trimmed(" \n\t"), "");
    EXPECT_EQ(trimmed(""), "");
}

TEST(OrvekTrim, WorksInTheSameBuffer)
{
    char text[] = "  a ";
    EXPECT_EQ(orvek_trim(text), text + 2);
    EXPECT_STREQ(text, "  a");
}
