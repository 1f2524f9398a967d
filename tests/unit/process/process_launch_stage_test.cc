#include "process/process_launch.h"

#include "build_paths.h"
#include "support/launch_test.h"
#include "util/errors.h"

#include <gtest/gtest.h>

#include <stdexcept>

using namespace orvek::process;
using orvek::SystemError;

namespace {

class LaunchOneTest : public LaunchTest
{
};

} // namespace

TEST_F(LaunchOneTest, TakesTheProgramFromThePathOrTheFirstArgument)
{
    Parameters<PipeProcessFlags> stage(CHILD_MAIN, "exit", "3");
    ProcessLaunch by_argument = launchOne(stage, DevNull, Inherit);
    by_argument.waitExec();
    EXPECT_EQ(by_argument.waitExit(), 3 << 8);
    stage.path = CHILD_MAIN;
    stage.args[0] = "another name";
    ProcessLaunch by_path = launchOne(stage, DevNull, Inherit);
    by_path.waitExec();
    EXPECT_EQ(by_path.waitExit(), 3 << 8);
}

TEST_F(LaunchOneTest, SearchesThePathUnlessDotOrSlashComesFirst)
{
    auto const failure = [](char const* program) {
        return textOf<SystemError>([program] {
            launchOne(Parameters<PipeProcessFlags>(program), DevNull, Inherit).waitExec();
        });
    };
    EXPECT_EQ(failure("no-such-program"), "execvp: No such file or directory");
    EXPECT_EQ(failure("dir/no-such-program"), "execvp: No such file or directory");
    EXPECT_EQ(failure("./no-such-program"), "execv: No such file or directory");
    EXPECT_EQ(failure("/no-such-program"), "execv: No such file or directory");
}

TEST_F(LaunchOneTest, RefusesAStageWithoutAProgram)
{
    EXPECT_THROW(launchOne(Parameters<PipeProcessFlags>(), DevNull, Inherit), std::out_of_range);
}
