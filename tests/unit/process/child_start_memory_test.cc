#include "process/child_start.h"

#include "build_paths.h"
#include "process/process_launch.h"
#include "support/child_run.h"
#include "support/launch_test.h"
#include "util/errors.h"

#include <gtest/gtest.h>

#include <cerrno>
#include <cstdio>
#include <cstdlib>
#include <stdexcept>
#include <string>

using namespace orvek::process;
using orvek::SystemError;

using ChildInTheToolsMemoryTest = LaunchTest;

TEST_F(ChildInTheToolsMemoryTest, HasItsStreamsAndLeavesTheToolItsOwn)
{
    char const* const argv[] = {CHILD_MAIN, "say", "O", "E", nullptr};
    bool is_shared = false;
    ProcessLaunch child({.argv = argv,
                         .path = CHILD_MAIN,
                         .childSetup = [&] { is_shared = true; },
                         .sharesMemory = true,
                         .stdinMode = Capture,
                         .stdoutMode = Capture,
                         .stderrMode = Capture});
    child.waitExec();
    EXPECT_TRUE(is_shared);
    EXPECT_EQ(openDescriptors().size(), descriptors.size() + 3);
    child.stdinPipe.close();
    EXPECT_EQ(readAll(child.stdoutPipe.fd), "O");
    EXPECT_EQ(readAll(child.stderrPipe.fd), "E");
    EXPECT_EQ(child.waitExit(), 0);
}

TEST_F(ChildInTheToolsMemoryTest, EndsAtOnceWhenItFails)
{
    auto const run = inChild([] {
        char const* const argv[] = {"x", nullptr};
        atexit([] { dprintf(1, "left by exit"); });
        ProcessLaunch child({.argv = argv,
                             .path = "/no/such",
                             .childSetup = [] { dprintf(1, "set up, "); },
                             .sharesMemory = true});
        std::string const text = textOf<SystemError>([&] { child.waitExec(); });
        return text == "execv: No such file or directory" ? 0 : 1;
    });
    EXPECT_EQ(run.status, 0);
    EXPECT_EQ(run.out, "set up, left by exit");
}

TEST_F(ChildInTheToolsMemoryTest, ReportsAnExceptionOfItsSetup)
{
    char const* const argv[] = {CHILD_MAIN, "exit", "0", nullptr};
    ProcessLaunch child({.argv = argv,
                         .path = CHILD_MAIN,
                         .childSetup = [] { throw std::runtime_error("no room"); },
                         .sharesMemory = true,
                         .stdoutMode = Capture});
    EXPECT_EQ(textOf<std::runtime_error>([&] { child.waitExec(); }), "no room");
    EXPECT_EQ(readAll(child.stdoutPipe.fd), "");
}

TEST_F(ChildInTheToolsMemoryTest, LeavesTheToolsErrorNumber)
{
    char const* const argv[] = {"x", nullptr};
    errno = 0;
    ProcessLaunch child({.argv = argv, .path = "/no/such", .sharesMemory = true});
    EXPECT_EQ(errno, 0);
    EXPECT_THROW(child.waitExec(), SystemError);
}
