#include "postfix/master_cf/master_cf_parser.h"

#include <gtest/gtest.h>

#include <ctime>
#include <string>
#include <string_view>

using namespace orvek::mail::postfix;

namespace {

constexpr char smtp[] = "smtp inet n - n - - smtpd";

// Processor time, so that other load on the machine does not count.
double secondsToParse(std::string_view text, bool accepted)
{
    std::clock_t const begin = std::clock();
    MasterCfContent content;
    EXPECT_EQ(MasterCfParser(content).parse(text.data(), text.data() + text.size()), accepted);
    return static_cast<double>(std::clock() - begin) / CLOCKS_PER_SEC;
}

std::string repeated(std::string_view part, size_t size)
{
    std::string text;
    while (text.size() < size)
        text += part;
    return text;
}

constexpr size_t huge = 10'000'000;
constexpr size_t many = 1'000'000; // for texts where every few bytes are an element

// Far more than these take, even with sanitizers, and far less than they would take if a byte were
// read once for each line before it.
constexpr double bound = 10;

} // namespace

TEST(MasterCfParserCost, IsQuickWithHugeFilesOfGarbage)
{
    EXPECT_LT(secondsToParse(repeated("garbage ", huge), false), bound);
    EXPECT_LT(secondsToParse(repeated("a", huge), false), bound);
    EXPECT_LT(secondsToParse(repeated(" ", many), true), bound);
    EXPECT_LT(secondsToParse(repeated("#", many), true), bound);
    EXPECT_LT(secondsToParse("a" + repeated("\n#", many), false), bound);
    EXPECT_LT(secondsToParse("a" + repeated("\n ", many), false), bound);
    EXPECT_LT(secondsToParse("a inet - - - 1" + repeated("0", many), false), bound);
    EXPECT_LT(secondsToParse(smtp + repeated("\n#", many) + "\n bad\nbad", false), bound);
}

TEST(MasterCfParserCost, IsQuickWithOneHugeEntry)
{
    EXPECT_LT(secondsToParse(smtp + repeated("\n\n#\n x", many), true), bound);
    EXPECT_LT(secondsToParse(smtp + repeated("x", many), true), bound);
}

TEST(MasterCfParserCost, IsQuickWithThousandsOfServices)
{
    std::string text;
    for (int i = 0; i < 5000; ++i)
        text += std::to_string(i) + " inet n - n - - smtpd -v\n#\n\n# comment\n";
    EXPECT_LT(secondsToParse(text, true), bound);
}
