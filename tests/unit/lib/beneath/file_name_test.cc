#include "lib/beneath/file_name.h"

#include <gtest/gtest.h>

TEST(FileName, IsAWordThatStaysInItsDirectory)
{
    for (char const* const word :
         {"a", "info", ".qmail", "...", "..a", "a..", "-", " ", "a\nb", "%s"})
        EXPECT_TRUE(is_file_name(word)) << word;
}

TEST(FileName, IsNoWordThatLeadsElsewhere)
{
    for (char const* const word : {"", ".", "..", "/", "a/b", "/a", "a/", "../a", "./a", "a/.."})
        EXPECT_FALSE(is_file_name(word)) << word;
}
