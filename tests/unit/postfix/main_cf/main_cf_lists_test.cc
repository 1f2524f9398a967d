#include "support/main_cf_test.h"

#include <gtest/gtest.h>

using MainCfListsOnHost = MainCfTest;

TEST_F(MainCfListsOnHost, AppendsAWordToAnEmptyParameterWithoutAComma)
{
    EXPECT_EQ(append(parameter, "permit"), "");
    EXPECT_EQ(trueSetting(parameter), "permit\n");
}

TEST_F(MainCfListsOnHost, AppendsAWordAfterTheExistingSpacing)
{
    pretend("a  b,c\td\n");
    EXPECT_EQ(append(parameter, "e"), "");
    EXPECT_EQ(pretended(), "a  b,c\td, e\n");
}

TEST_F(MainCfListsOnHost, AppendsAWordAfterAFinalSeparator)
{
    pretend("a,");
    EXPECT_EQ(append(parameter, "b"), "");
    EXPECT_EQ(pretended(), "a,, b\n");
}

TEST_F(MainCfListsOnHost, ComparesWholeWordsWhenAppending)
{
    pretend("abc Ab a.b");
    EXPECT_EQ(append(parameter, "ab"), "");
    EXPECT_EQ(pretended(), "abc Ab a.b, ab\n");
}

TEST_F(MainCfListsOnHost, WritesNothingForAWordThatIsThere)
{
    for (char const* const value : {"b", "a, b", "b,a", "a b\tc"}) {
        pretend(value);
        EXPECT_EQ(append(parameter, "b"), "");
        EXPECT_EQ(pretended(), value);
    }
    EXPECT_FALSE(wrote());
}

TEST_F(MainCfListsOnHost, AppendsTextOfSeveralWordsAsAWhole)
{
    pretend("a, b");
    EXPECT_EQ(append(parameter, "a, b"), "");
    EXPECT_EQ(pretended(), "a, b, a, b\n");
}

TEST_F(MainCfListsOnHost, AppendsNothingAfterAReadThatFailed)
{
    postconf.run("[ \"$2\" = config_directory ] && exec $real \"$@\"\nexit 1");
    EXPECT_EQ(append(parameter, "x"), "!PostfixConfigurationError: unknown error");
    EXPECT_EQ(appendClause(parameter, "x", "y"), "!PostfixConfigurationError: unknown error");
    EXPECT_EQ(removeElement(parameter, "x"), "!PostfixConfigurationError: unknown error");
    EXPECT_FALSE(wrote());
}

TEST_F(MainCfListsOnHost, AppendsAClauseAndNormalisesTheList)
{
    pretend("a,,b , c");
    EXPECT_EQ(appendClause(parameter, "x", "y"), "");
    EXPECT_EQ(pretended(), "a, b, c, x y\n");
}

TEST_F(MainCfListsOnHost, AppendsAClauseToAnEmptyParameter)
{
    EXPECT_EQ(appendClause(parameter, "check_client_access", "pcre:/x"), "");
    EXPECT_EQ(trueSetting(parameter), "check_client_access pcre:/x\n");
}

TEST_F(MainCfListsOnHost, WritesNothingForAClauseThatIsThere)
{
    pretend("a,, x y ,b");
    EXPECT_EQ(appendClause(parameter, "x", "y"), "");
    EXPECT_EQ(pretended(), "a,, x y ,b");
    EXPECT_FALSE(wrote());
}

TEST_F(MainCfListsOnHost, ComparesAClauseWithTheBlanksBetweenItsWords)
{
    pretend("x  y");
    EXPECT_EQ(appendClause(parameter, "x", "y"), "");
    EXPECT_EQ(pretended(), "x  y, x y\n");
}

TEST_F(MainCfListsOnHost, ComparesAClauseWithoutTheBlanksAroundIt)
{
    pretend("a, x");
    EXPECT_EQ(appendClause(parameter, "x", ""), "");
    EXPECT_FALSE(wrote());
}

TEST_F(MainCfListsOnHost, WritesAClauseWithTheBlankAfterItsKey)
{
    pretend("a");
    EXPECT_EQ(appendClause(parameter, "x", ""), "");
    EXPECT_EQ(pretended(), "a, x \n");
}

TEST_F(MainCfListsOnHost, RemovesEveryOccurrenceOfAWord)
{
    pretend("a, b, c");
    EXPECT_EQ(removeElement(parameter, "b"), "");
    EXPECT_EQ(pretended(), "a, c\n");
    pretend("b a,b\tb,  bc b");
    EXPECT_EQ(removeElement(parameter, "b"), "");
    EXPECT_EQ(pretended(), "a, bc\n");
}

TEST_F(MainCfListsOnHost, KeepsTheEmptyWordAfterALastSeparator)
{
    pretend("a, b,");
    EXPECT_EQ(removeElement(parameter, "a"), "");
    EXPECT_EQ(pretended(), "b, \n");
}

TEST_F(MainCfListsOnHost, WritesAnEmptyValueWhenTheLastWordGoes)
{
    EXPECT_EQ(replace("relayhost", "b"), "");
    postconf.run("exec $real \"$@\"");
    EXPECT_EQ(removeElement("relayhost", "b"), "");
    EXPECT_NE(postconf.journal().find("-e relayhost=\n"), std::string::npos);
    EXPECT_EQ(trueSetting("relayhost"), "\n");
}

TEST_F(MainCfListsOnHost, WritesNothingForAWordThatIsNotThere)
{
    for (char const* const value : {"", "a", "bb, b2", "x y, z"}) {
        pretend(value);
        EXPECT_EQ(removeElement(parameter, "b"), "");
        EXPECT_EQ(removeElement(parameter, "x y"), "") << "a clause is not a word";
        EXPECT_EQ(pretended(), value);
    }
    EXPECT_FALSE(wrote());
}

TEST_F(MainCfListsOnHost, KeepsMainCfWhenTheLastWriteFails)
{
    std::string const before = readFile(main_cf);
    postconf.run("[ $1 = -h ] && exec $real \"$@\"\necho 'postconf: no' >&2; exit 1");
    EXPECT_EQ(append("mydestination", "x"), "!PostfixConfigurationError: postconf: no\n");
    EXPECT_EQ(appendClause("mydestination", "x", "y"),
              "!PostfixConfigurationError: postconf: no\n");
    EXPECT_EQ(removeElement("mydestination", "localhost"),
              "!PostfixConfigurationError: postconf: no\n");
    EXPECT_EQ(readFile(main_cf), before);
}
