#include "lib/files/dot_entry.h"

#include <gtest/gtest.h>

TEST(DotEntry, IsADirectoryItselfOrTheOneAboveIt)
{
    EXPECT_TRUE(is_dot_entry("."));
    EXPECT_TRUE(is_dot_entry(".."));
}

TEST(DotEntry, IsNoNameThatMerelyBeginsWithADot)
{
    for (auto const* const name : {"", "...", ".a", "..a", "a.", "a"})
        EXPECT_FALSE(is_dot_entry(name)) << name;
}
