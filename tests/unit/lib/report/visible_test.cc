#include "lib/report/visible.h"

#include "support/memory_faults.h"

#include <gtest/gtest.h>

#include <cstdio>

namespace {

// The printed form of the format and its arguments.
[[gnu::format(printf, 1, 2)]] std::string shownOf(char const* fmt, ...)
{
    char text[256];
    va_list args;
    va_start(args, fmt);
    vsnprintf(text, sizeof text, fmt, args);
    va_end(args);
    va_start(args, fmt);
    CString const shown = visible_arguments(text, fmt, args);
    va_end(args);
    return shown ? shown.get() : text;
}

} // namespace

TEST(Visible, KeepsWhatAPrinterCanShow)
{
    for (char const* const text : {"", "anna@example.com", "a\tb\\n", "bücher.example", "雪"})
        EXPECT_EQ(visible(text), text);
}

TEST(Visible, ShowsControlBytes)
{
    EXPECT_EQ(visible("a\nb\rc\n"), "a\\nb\\rc\\n");
    EXPECT_EQ(visible(std::string_view("\x1b[2J\0\x7f\b", 7)), "\\x1b[2J\\x00\\x7f\\x08");
}

TEST(Visible, ShowsTheControlCharactersOfUtf8)
{
    EXPECT_EQ(visible("a\xc2\x85z"), "a\\xc2\\x85z");
    EXPECT_EQ(visible("\xc2\x9b"), "\\xc2\\x9b");
    EXPECT_EQ(visible("\xc2\xa0\xc3\x9b"), "\xc2\xa0\xc3\x9b");
}

TEST(VisibleLines, KeepsTheNewlines)
{
    EXPECT_EQ(visible_lines("a\nb\x1b\n"), "a\nb\\x1b\n");
}

TEST(VisibleField, ShowsTabsToo)
{
    EXPECT_EQ(visible_field("\ta\t\tb\n1\t"), "\\ta\\t\\tb\\n1\\t");
    EXPECT_EQ(visible_field("r\303\251sum\303\251 \\t.txt"), "r\303\251sum\303\251 \\t.txt");
}

TEST(VisibleArguments, KeepsTheNewlinesOfTheFormat)
{
    EXPECT_EQ(shownOf("a\n%s\nb\n", "name"), "a\nname\nb\n");
    EXPECT_EQ(shownOf("a\n%s\nb\n", "na\nme"), "a\nna\\nme\nb\n");
    EXPECT_EQ(shownOf("%d %s: %s", 7, "\n", "\v\n"), "7 \\n: \\x0b\\n");
}

TEST(VisibleArguments, KeepsTheLinesOfAWholeTextAtTheEnd)
{
    EXPECT_EQ(shownOf("%s", "one\ntwo\x1b\n"), "one\ntwo\\x1b\n");
    EXPECT_EQ(shownOf("%s failed:\n%s", "a\nb", "one\ntwo\n"), "a\\nb failed:\none\ntwo\n");
    EXPECT_EQ(shownOf("of %s", "one\ntwo"), "of one\\ntwo");
}

TEST(VisibleArguments, MasksWhatItHasNoMemoryToShow)
{
    for (int const number : {1, 2, 3}) {
        AllocationFailure const failure(number);
        EXPECT_EQ(shownOf("no %s\n", "a\nb"), "no a?b\n") << number;
    }
}

TEST(VisibleArguments, KeepsErrno)
{
    AllocationFailure const failure(1);
    errno = EXDEV;
    EXPECT_EQ(shownOf("%s!", "\n"), "?!");
    EXPECT_EQ(errno, EXDEV);
}
