#include "postfix/main_cf/parameter_lists.h"

#include <gtest/gtest.h>

using namespace orvek::mail::postfix;
using List = std::vector<std::string>;

TEST(ParameterLists, TakesRunsOfSpacesTabsAndCommasAsOneSeparator)
{
    EXPECT_EQ(splitSimpleList("a b\tc,d"), (List{"a", "b", "c", "d"}));
    EXPECT_EQ(splitSimpleList("a, ,\t b"), (List{"a", "b"}));
    EXPECT_EQ(splitSimpleList("a\nb"), List{"a\nb"});
}

TEST(ParameterLists, KeepsAnEmptyWordBeyondASeparatorAtAnEnd)
{
    EXPECT_EQ(splitSimpleList("a,"), (List{"a", ""}));
    EXPECT_EQ(splitSimpleList(",,a, "), (List{"", "a", ""}));
    EXPECT_EQ(splitSimpleList(","), (List{"", ""}));
}

TEST(ParameterLists, MakesAnEmptyListOfAnEmptyText)
{
    EXPECT_EQ(splitSimpleList(""), List{});
    EXPECT_EQ(splitCompoundList(""), List{});
}

TEST(ParameterLists, SplitsClausesAtCommasAndTrimsThem)
{
    EXPECT_EQ(splitCompoundList("a,,b , c"), (List{"a", "b", "c"}));
    EXPECT_EQ(splitCompoundList(" check_client_access  hash:/x\t,\n permit"),
              (List{"check_client_access  hash:/x", "permit"}));
}

TEST(ParameterLists, DropsEmptyClauses)
{
    EXPECT_EQ(splitCompoundList(",a, ,b,"), (List{"a", "b"}));
    EXPECT_EQ(splitCompoundList(" , "), List{});
}

TEST(ParameterLists, JoinsWithACommaAndASpace)
{
    EXPECT_EQ(joinList({"a", "b c", ""}), "a, b c, ");
    EXPECT_EQ(joinList({"a"}), "a");
    EXPECT_EQ(joinList({}), "");
}
