#include "lib/host/to64.h"

#include <gtest/gtest.h>

#include <cstdlib>
#include <cstring>
#include <set>
#include <string>

TEST(Itoa64, IsTheAlphabetOfPasswordSalts)
{
    EXPECT_STREQ(itoa64, "./0123456789ABCDEFGHIJKLMNOPQRSTUVWXYZabcdefghijklmnopqrstuvwxyz");
}

TEST(To64, WritesTheGivenCountOfCharactersWithoutNul)
{
    std::string text = "##########";
    to64(text.data() + 1, 8);
    EXPECT_EQ(text.front(), '#');
    EXPECT_EQ(text.back(), '#');
    EXPECT_EQ(text.find_first_not_of(itoa64, 1), 9U);
    to64(text.data(), 0);
    EXPECT_EQ(text.front(), '#');
}

// NOLINTBEGIN(cert-msc30-c,cert-msc32-c,cert-msc50-cpp,cert-msc51-cpp): the test needs the known
// sequence
TEST(To64, TakesTheCharacterAfterTheOneDrawn)
{
    srand(7);
    std::string expected;
    for (int i = 0; i < 1000; ++i)
        expected += itoa64[(static_cast<int>(64.0 * rand() / (RAND_MAX + 1.0)) + 1) % 64];
    std::string text(1000, '#');
    srand(7);
    to64(text.data(), 1000);
    EXPECT_EQ(text, expected);
}

TEST(To64, DrawsEveryCharacterOfTheAlphabet)
{
    std::string text(10000, '#');
    srand(1);
    to64(text.data(), 10000);
    EXPECT_EQ(std::set<char>(text.begin(), text.end()),
              std::set<char>(itoa64, itoa64 + strlen(itoa64)));
}
// NOLINTEND(cert-msc30-c,cert-msc32-c,cert-msc50-cpp,cert-msc51-cpp)
