#include "lib/text/string.h"

#include "lib/report/owned.h"
#include "support/child_run.h"
#include "support/memory_faults.h"
#include "support/report.h"
#include "support/strings_of.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <cerrno>
#include <string>
#include <vector>

using ::testing::ElementsAre;

namespace {

std::vector<std::string> split(char const* str, char const* delim)
{
    return stringsOf(StringArray(string_split(str, delim)));
}

std::string const no_memory =
    withErrno(std::string("System error: ") + strerror(ENOMEM) + "\n", ENOMEM);

} // namespace

TEST(StringToMas, BeginsAnArray)
{
    StringArray const array(string_to_mas(nullptr, "a"));
    EXPECT_THAT(stringsOf(array), ElementsAre("a"));
}

TEST(StringToMas, AppendsACopy)
{
    char text[] = "b";
    StringArray array(string_to_mas(nullptr, "a"));
    array.reset(string_to_mas(array.release(), text));
    text[0] = 'x';
    EXPECT_THAT(stringsOf(array), ElementsAre("a", "b"));
}

TEST(StringToMas, LeavesTheArrayAsItWasWhenItFails)
{
    for (int const number : {1, 2}) {
        StringArray const array(string_to_mas(nullptr, "a"));
        auto const run = inChild([&] {
            AllocationFailure const failing(number);
            return string_to_mas(array.get(), "b") ? 1 : 0;
        });
        EXPECT_EQ(run.status, 0);
        EXPECT_EQ(run.err, no_memory);
        EXPECT_THAT(stringsOf(array), ElementsAre("a"));
    }
}

TEST(StringArrayBuilder, GivesNullWhenNothingWasAppended)
{
    StringArrayBuilder builder;
    EXPECT_EQ(builder.release(), nullptr);
}

TEST(StringArrayBuilder, GivesCopiesInTheirOrder)
{
    StringArrayBuilder builder;
    std::vector<std::string> expected;
    for (int i = 0; i < 100; ++i) {
        expected.push_back(std::to_string(i));
        ASSERT_TRUE(builder.append(expected.back().c_str()));
    }
    EXPECT_EQ(stringsOf(builder.release()), expected);
}

TEST(StringArrayBuilder, BeginsAnewAfterARelease)
{
    StringArrayBuilder builder;
    ASSERT_TRUE(builder.append("a"));
    EXPECT_THAT(stringsOf(builder.release()), ElementsAre("a"));
    ASSERT_TRUE(builder.append("b"));
    EXPECT_THAT(stringsOf(builder.release()), ElementsAre("b"));
}

TEST(StringArrayBuilder, LeavesTheArrayAsItWasWhenItFails)
{
    for (int const number : {1, 2}) {
        auto const run = inChild([=] {
            StringArrayBuilder builder;
            for (char const* const name : {"a", "b", "c", "d", "e", "f", "g"})
                if (!builder.append(name))
                    return 1;
            {
                AllocationFailure const failure(number); // the copy, or the longer array
                if (builder.append("h"))
                    return 2;
            }
            return stringsOf(builder.release()).size() == 7 ? 0 : 3;
        });
        EXPECT_EQ(run.status, 0);
        EXPECT_EQ(run.err, withErrno("System error: Cannot allocate memory\n", ENOMEM));
        EXPECT_EQ(run.out, run.err);
    }
}

TEST(FreeArray, TakesNull)
{
    free_array(nullptr);
}

TEST(StringSplit, SplitsAtAnyByteOfTheDelimiters)
{
    EXPECT_THAT(split("a,b c", ", "), ElementsAre("a", "b", "c"));
}

TEST(StringSplit, GivesTheWholeTextWhereNothingDelimits)
{
    EXPECT_THAT(split("abc", ","), ElementsAre("abc"));
    EXPECT_THAT(split("a,c", ""), ElementsAre("a,c"));
}

TEST(StringSplit, TakesARunOfDelimitersForOne)
{
    EXPECT_THAT(split("a, ,b", ", "), ElementsAre("a", "b"));
}

TEST(StringSplit, SkipsDelimitersAtTheBeginning)
{
    EXPECT_THAT(split(",,a", ","), ElementsAre("a"));
}

TEST(StringSplit, GivesAnEmptyLastFieldBehindATrailingDelimiter)
{
    EXPECT_THAT(split("a,", ","), ElementsAre("a", ""));
    EXPECT_THAT(split("a,,", ","), ElementsAre("a", ""));
    EXPECT_THAT(split(",", ","), ElementsAre(""));
}

TEST(StringSplit, GivesOneEmptyFieldForAnEmptyText)
{
    EXPECT_THAT(split("", ","), ElementsAre(""));
}

TEST(StringSplit, ReportsAnElementThatCannotBeAdded)
{
    for (int const number : {1, 2, 3, 4}) {
        auto const run = inChild([=] {
            AllocationFailure const failing(number);
            return string_split("a,b", ",") ? 1 : 0;
        });
        EXPECT_EQ(run.status, 0);
        EXPECT_EQ(run.err, no_memory + withErrno("Unable to add string into array", ENOMEM));
    }
}

TEST(Strtolower, ChangesLettersInPlace)
{
    char text[] = "AbC-12\xC4";
    EXPECT_EQ(strtolower(text), text);
    EXPECT_STREQ(text, "abc-12\xC4");
}

TEST(Strtolower, GivesNullForNull)
{
    EXPECT_EQ(strtolower(nullptr), nullptr);
    EXPECT_EQ(strtolower_dynamic(nullptr), nullptr);
}

TEST(StrtolowerDynamic, ChangesACopy)
{
    CString const copy(strtolower_dynamic("AbC"));
    EXPECT_STREQ(copy.get(), "abc");
}

TEST(StrtolowerDynamic, ReportsThatThereIsNoMemory)
{
    auto const run = inChild([] {
        AllocationFailure const failing(1);
        return strtolower_dynamic("A") ? 1 : 0;
    });
    EXPECT_EQ(run.status, 0);
    EXPECT_EQ(run.err, no_memory);
}
