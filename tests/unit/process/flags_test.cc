#include "process/flags.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

using namespace orvek::process;
using ::testing::ElementsAre;
using Stage = Parameters<PipeProcessFlags>;

TEST(Flags, StandForNothingChosen)
{
    Stage const stage;
    EXPECT_EQ(stage.cwd, "");
    EXPECT_EQ(stage.env, nullptr);
    EXPECT_FALSE(stage.closeDescriptors);
    EXPECT_TRUE(stage.childSetup.empty());
    EXPECT_EQ(stage.stderrMode, -1);
    EXPECT_TRUE(stage.stderrReceiver.empty());
    EXPECT_TRUE(stage.exitHandler.empty());
    EXPECT_EQ(stage.path, "");
    EXPECT_TRUE(stage.args.empty());
    PipeFlags const flags;
    EXPECT_EQ(flags.stdinMode, -1);
    EXPECT_TRUE(flags.stdinSource.empty());
    EXPECT_EQ(flags.stdoutMode, -1);
    EXPECT_TRUE(flags.stdoutReceiver.empty());
}

TEST(Flags, HaveDescriptorModesBelowZero)
{
    EXPECT_EQ(Unspecified, -1);
    EXPECT_EQ(Inherit, -2);
    EXPECT_EQ(DevNull, -3);
    EXPECT_EQ(Capture, -4);
    EXPECT_EQ(MergeWithStdout, -5);
}

TEST(Parameters, TakeTheProgramAndUpToNineArguments)
{
    EXPECT_THAT(Stage("p").args, ElementsAre("p"));
    EXPECT_THAT(Stage("p", "1", "2", "3", "4", "5", "6", "7", "8", "9").args,
                ElementsAre("p", "1", "2", "3", "4", "5", "6", "7", "8", "9"));
    EXPECT_EQ(Stage("p", "1").path, "");
    EXPECT_GE(Stage("p").args.capacity(), 10U);
}

TEST(Parameters, EndBeforeTheFirstEmptyArgument)
{
    EXPECT_THAT(Stage("p", "1", "", "3").args, ElementsAre("p", "1"));
}

TEST(Parameters, TakeEvenAnEmptyProgram)
{
    EXPECT_THAT(Stage("", "1").args, ElementsAre("", "1"));
}
