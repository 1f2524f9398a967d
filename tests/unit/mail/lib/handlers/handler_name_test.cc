#include "mail/lib/handlers/handler_name.h"

#include "support/log_recorder.h"
#include "support/memory_faults.h" // the program is linked for it

#include "support/child_run.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <string>
#include <vector>

using ::testing::ElementsAre;
using ::testing::IsEmpty;

namespace {

void expectParts(char const* name, char const* priority, char const* name_template,
                 char const* random)
{
    LogRecorder const recorder;
    HandlerNameParts parts;
    ASSERT_EQ(split_handler_name(name, parts), 0) << name;
    EXPECT_EQ(parts.priority, priority);
    EXPECT_EQ(parts.name_template, name_template);
    EXPECT_EQ(parts.random, random);
    EXPECT_THAT(LogRecorder::reports(), IsEmpty());
}

void expectInvalid(char const* name, std::string const& why)
{
    LogRecorder const recorder;
    HandlerNameParts parts;
    EXPECT_EQ(split_handler_name(name, parts), -1) << name;
    EXPECT_THAT(LogRecorder::reports(),
                ElementsAre(Report(3, "Invalid handler name '" + std::string(name) + "': " + why)));
}

std::vector<std::string> sorted(std::vector<char const*> names)
{
    handlers_sort(names.data(), names.size());
    return {names.begin(), names.end()};
}

} // namespace

TEST(SplitHandlerName, SplitsAtTheFirstAndTheLastHyphen)
{
    expectParts("10-spam-a1B2c3", "10", "spam", "a1B2c3");
}

TEST(SplitHandlerName, LeavesHyphensInTheTemplate)
{
    expectParts("10-spam-and-virus-a1B2c3", "10", "spam-and-virus", "a1B2c3");
    expectParts("10----a1B2c3", "10", "--", "a1B2c3");
}

TEST(SplitHandlerName, AcceptsAnEmptyPriorityAndAnEmptyRandomPart)
{
    expectParts("-spam-a1B2c3", "", "spam", "a1B2c3");
    expectParts("10-spam-", "10", "spam", "");
}

TEST(SplitHandlerName, RefusesANameWithoutAHyphen)
{
    expectInvalid("spam", "missing priority section");
    expectInvalid("", "missing priority section");
}

TEST(SplitHandlerName, RefusesANameWithOnlyOneHyphen)
{
    expectInvalid("10-spam", "missing random part");
    expectInvalid("-", "missing random part");
}

TEST(SplitHandlerName, RefusesAnEmptyTemplate)
{
    expectInvalid("10--a1B2c3", "empty template part");
    expectInvalid("--", "empty template part");
}

TEST(HandlersCompare, PutsTheSmallerPriorityFirstAsANumber)
{
    EXPECT_LT(handlers_compare("9-b-x", "10-a-x"), 0);
    EXPECT_GT(handlers_compare("10-a-x", "9-b-x"), 0);
    EXPECT_LT(handlers_compare("-9-b-x", "10-a-x"), 0);
}

TEST(HandlersCompare, ReadsALeadingZeroAsOctalAnd0xAsHexadecimal)
{
    EXPECT_LT(handlers_compare("010-b-x", "9-a-x"), 0);
    EXPECT_GT(handlers_compare("0x10-a-x", "15-b-x"), 0);
    EXPECT_EQ(handlers_compare("0x10-a-x", "16-a-x"), 0);
    EXPECT_EQ(handlers_compare("020-a-x", "16-a-x"), 0);
}

TEST(HandlersCompare, TakesWhatIsNoNumberForZero)
{
    EXPECT_EQ(handlers_compare("high-a-x", "0-a-x"), 0);
    EXPECT_LT(handlers_compare("high-a-x", "1-a-x"), 0);
    EXPECT_LT(handlers_compare("high-a-x", "-1-a-x"), 0) << "a leading hyphen is passed over";
}

TEST(HandlersCompare, ComparesTemplatesAndThenTheThirdFieldsOfEqualPriorities)
{
    EXPECT_LT(handlers_compare("10-a-z", "10-b-a"), 0);
    EXPECT_LT(handlers_compare("10-a-y", "10-a-z"), 0);
    EXPECT_GT(handlers_compare("10-a-z", "10-a-y"), 0);
    EXPECT_EQ(handlers_compare("10-a-y", "10-a-y"), 0);
    EXPECT_EQ(handlers_compare("10-a-b-x", "10-a-b-y"), 0) << "the fourth field does not count";
}

TEST(HandlersCompare, TakesFieldsThatAreMissingForEmpty)
{
    EXPECT_EQ(handlers_compare("10", "10"), 0);
    EXPECT_LT(handlers_compare("10", "10-a"), 0);
    EXPECT_LT(handlers_compare("10-a", "10-a-x"), 0);
    EXPECT_EQ(handlers_compare("", ""), 0);
}

TEST(HandlersCompare, TakesAllNamesForLevelWithoutMemory)
{
    auto const run = inChild([] {
        LogRecorder const recorder;
        int result = 1;
        {
            AllocationFailure const failure(1);
            result = handlers_compare("10-a-x", "20-a-x");
        }
        Report const wanted(3, "Unable to split handlers name. Skipping sorting handlers..");
        return result == 0 && LogRecorder::reports() == std::vector<Report>{wanted} ? 0 : 1;
    });
    EXPECT_EQ(run.status, 0);
    EXPECT_THAT(run.err, ::testing::HasSubstr("Unable to add string into array"));
}

TEST(HandlersSort, PutsHandlersIntoTheOrderInWhichTheyRun)
{
    EXPECT_THAT(sorted({"100-a-x", "20-b-y", "9-c-x", "20-b-x", "010-z-x", "20-a-z"}),
                ElementsAre("010-z-x", "9-c-x", "20-a-z", "20-b-x", "20-b-y", "100-a-x"));
}

TEST(HandlersSort, LeavesAnEmptyListAlone)
{
    EXPECT_THAT(sorted({}), IsEmpty());
}
