#include "postfix/master_cf/text_parsers.h"

#include <gtest/gtest.h>

#include <string>
#include <string_view>

using namespace orvek::parser;

namespace {

// The length of the parser's match, or -1 for no match.
template<class Parser>
long taken(Parser const& parser, std::string_view text)
{
    Position const end = parser(text.data(), text.data() + text.size());
    return end ? end - text.data() : -1;
}

// The same on a copy without any byte after the text.
long separated(std::string const& text)
{
    std::string const copy(text.data(), text.size());
    return taken(continuous_spaces_p, copy);
}

void expectSet(char_parser const& parser, std::string_view members)
{
    for (int byte = 0; byte < 256; ++byte) {
        char const c = static_cast<char>(byte);
        bool const member = members.find(c) != std::string_view::npos;
        EXPECT_EQ(taken(parser, {&c, 1}), member ? 1 : -1) << byte;
    }
    EXPECT_EQ(taken(parser, ""), -1);
}

} // namespace

TEST(TextParsers, KnowTheSharedBytes)
{
    expectSet(lf_p, "\n");
    expectSet(cr_p, "\r");
    expectSet(sp_p, " ");
    expectSet(tab_p, "\t");
    expectSet(swsp_p, "\t \r");
}

TEST(TextParsers, TakeAMinusBetweenTwoBytesForARange)
{
    constexpr char_parser set("-a-d_x-");
    expectSet(set, "-abcd_x");
}

TEST(TextParsers, UniteSets)
{
    constexpr char_parser set = char_parser("0-2") | char_parser("!x");
    expectSet(set, "012!x");
}

TEST(TextParsers, SkipAsManyBytesOfASetAsThereAre)
{
    std::string_view const text = "\t \rx ";
    EXPECT_EQ(swsp_p.skip(text.data(), text.data() + text.size()) - text.data(), 3);
    EXPECT_EQ(swsp_p.skip(text.data(), text.data() + 2) - text.data(), 2);
}

TEST(TextParsers, AnEmptyLineIsBlanksOrNothing)
{
    EXPECT_EQ(taken(empty_line_p, ""), 0);
    EXPECT_EQ(taken(empty_line_p, "x"), 0);
    EXPECT_EQ(taken(empty_line_p, " \t\r \n"), 4);
}

TEST(TextParsers, ACommentGoesToTheEndOfTheLine)
{
    EXPECT_EQ(taken(comments_p, "# a\r\n#b"), 4);
    EXPECT_EQ(taken(comments_p, std::string_view("#\0\xff", 3)), 3);
    EXPECT_EQ(taken(comments_p, " #"), -1);
    EXPECT_EQ(taken(comments_p, ""), -1);
    EXPECT_EQ(taken(comments_line_p, " \t# a\n"), 5);
    EXPECT_EQ(taken(comments_line_p, " a"), -1);
}

TEST(TextParsers, ASeparatorMayBeNothing)
{
    EXPECT_EQ(separated(""), 0);
    EXPECT_EQ(separated("x"), 0);
    EXPECT_EQ(separated("\n"), 0);
    EXPECT_EQ(separated("\nx"), 0);
}

TEST(TextParsers, ASeparatorTakesBlanksAndAComment)
{
    EXPECT_EQ(separated(" \t x"), 3);
    EXPECT_EQ(separated(" # c"), 4);
    EXPECT_EQ(separated(" # c\nx"), 4);
}

TEST(TextParsers, ASeparatorGoesOnToAnIndentedLine)
{
    EXPECT_EQ(separated("\n x"), 2);
    EXPECT_EQ(separated(" # c\n\tx"), 6);
    EXPECT_EQ(separated("\r\n x"), 3);
}

TEST(TextParsers, ASeparatorSkipsBlankAndCommentLines)
{
    EXPECT_EQ(separated("\n\n#c\n \n  #d\n x"), 13);
}

TEST(TextParsers, AnUnindentedSeparatorEndsBeforeTheFirstLineEnd)
{
    EXPECT_EQ(separated(" # c\n\n#d\nx"), 4);
    EXPECT_EQ(separated("\n \n#d\n"), 0);
    EXPECT_EQ(separated("\n#d"), 0);
}

TEST(TextParsers, ASeparatorMayEndInFinalBlanks)
{
    EXPECT_EQ(separated("\n  "), 3);
    EXPECT_EQ(separated("\n#c\n  "), 6);
    EXPECT_EQ(separated("\n  #c"), 3);
}
