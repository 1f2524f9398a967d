#include "postfix/tools/postmap_output.h"

#include <gtest/gtest.h>

using orvek::mail::postfix::checkOutput;

namespace {

void expectBoth(std::string const& text, bool harmless, bool harmless_if_strict)
{
    EXPECT_EQ(checkOutput(text, false), harmless) << text;
    EXPECT_EQ(checkOutput(text, true), harmless_if_strict) << text;
}

} // namespace

TEST(CheckOutput, TakesNoTextAsHarmless)
{
    expectBoth("", true, true);
    expectBoth("\n\n", true, true);
}

TEST(CheckOutput, TakesAWarningAsHarmless)
{
    expectBoth("postconf: warning: foo: unknown parameter", true, true);
}

TEST(CheckOutput, FindsEachWordOfAFailure)
{
    expectBoth("postconf: fatal: bad", false, false);
    expectBoth("postmap: panic: bad\n", false, false);
    expectBoth("postmap:error:bad\n", false, false);
}

TEST(CheckOutput, CountsAnyOtherWordInStrictModeOnly)
{
    expectBoth("postmap: info: x: y", true, false);
    expectBoth("postmap: Fatal: x", true, false);
    expectBoth("postmap: fatal : x", true, false);
    expectBoth("postmap: warnings: x", true, false);
}

TEST(CheckOutput, LooksOnlyAtTheWordAfterTheFirstColon)
{
    expectBoth("fatal: bad", true, true);
    expectBoth("fatal: bad: worse", true, false);
    expectBoth("postmap: x: fatal: bad", true, false);
    expectBoth("postmap: warning: fatal: bad", true, true);
}

TEST(CheckOutput, NeedsASecondColonAfterTheWord)
{
    expectBoth("postmap: fatal", true, true);
    expectBoth("no colon at all", true, true);
    expectBoth("colon last:", true, true);
    expectBoth("blanks last:   ", true, true);
    expectBoth("one character: x", true, true);
    expectBoth("one colon: :", true, true);
    expectBoth("postmap: fatal:", false, false);
}

TEST(CheckOutput, SkipsAnyNumberOfBlanksInFrontOfTheWord)
{
    expectBoth("postmap:     fatal: bad", false, false);
    expectBoth("postmap:\tfatal: bad", true, false);
}

TEST(CheckOutput, JudgesEachLineByItself)
{
    expectBoth("postmap: warning: x\nfatal: x\npostmap: fatal: y", false, false);
    expectBoth("postmap: fatal: x\npostmap: warning: y\n", false, false);
    expectBoth("postmap\n: fatal: y\n", false, false);
    expectBoth("postmap:\nfatal: y\n", true, true);
    expectBoth("postmap: a\nb: c\n", true, true);
}
