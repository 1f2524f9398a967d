#include "postfix/master_cf/command_words.h"

#include <gtest/gtest.h>

#include <utility>
#include <vector>

using orvek::mail::postfix::CommandWords;

TEST(CommandWords, BeginsEmpty)
{
    CommandWords const words;
    EXPECT_TRUE(words.empty());
    EXPECT_EQ(words.begin(), words.end());
    EXPECT_EQ(words, CommandWords());
}

TEST(CommandWords, HoldsWhatWasAddedInItsOrder)
{
    CommandWords words{"a"};
    words.push_back("b c");
    words.push_back("");
    EXPECT_EQ(std::vector<std::string>(words.begin(), words.end()),
              (std::vector<std::string>{"a", "b c", ""}));
    EXPECT_EQ(words.size(), 3U);
}

TEST(CommandWords, LeavesACopyAsItWasWhenItGrows)
{
    CommandWords words{"a"};
    CommandWords const copy = words;
    words.push_back("b");
    EXPECT_EQ(copy, CommandWords{"a"});
    EXPECT_EQ(words, (CommandWords{"a", "b"}));
}

TEST(CommandWords, LeavesTheOriginalAsItWasWhenACopyGrows)
{
    CommandWords words;
    CommandWords copy = words;
    copy.push_back("x");
    words.push_back("y");
    copy.push_back("z");
    EXPECT_EQ(copy, (CommandWords{"x", "z"}));
    EXPECT_EQ(words, CommandWords{"y"});
}

TEST(CommandWords, SharesTheWordsOfACopy)
{
    CommandWords words{"a"};
    CommandWords const copy = words;
    words.push_back("b");
    EXPECT_EQ(&*copy.begin(), &*words.begin());
}

TEST(CommandWords, StaysWholeWhenItIsMovedFrom)
{
    CommandWords words{"a"};
    CommandWords const other = std::move(words);
    words.push_back("b"); // NOLINT(bugprone-use-after-move): what is tested
    EXPECT_EQ(words, (CommandWords{"a", "b"}));
    EXPECT_EQ(other, CommandWords{"a"});
}
