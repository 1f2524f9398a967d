#include "process/pipe_pump.h"

#include "support/call_faults.h"
#include "support/pump_test.h"
#include "util/errors.h"

#include <boost/function.hpp>
#include <gtest/gtest.h>

#include <stdexcept>
#include <string>

using namespace orvek::process;
using orvek::SystemError;

namespace {

class PipePumpFailureTest : public PumpTest
{
};

} // namespace

TEST_F(PipePumpFailureTest, RefusesASourceThatPromisesMoreAndGivesNothing)
{
    feed(2, 0);
    auto const source = pipe.stdinSource;
    pipe.stdinSource = [=](Chunk& chunk) {
        errno = ENOSPC;
        return source(chunk);
    };
    pipe.append(stage("count"));
    EXPECT_EQ(textOf<SystemError>([&] { pipe.run(); }), "write: No space left on device");
    waitForAllChildren();
}

TEST_F(PipePumpFailureTest, FailsForACaptureTheLastStageLacks)
{
    pipe.stderrMode = Unspecified;
    pipe.append(stage("exit", "0"));
    pipe.append(stage("exit", "0"));
    pipe.stages[0].stderrMode = Capture;
    EXPECT_EQ(textOf<SystemError>([&] { pipe.run(); }), "fcntl: Bad file descriptor");
    waitForAllChildren();
}

TEST_F(PipePumpFailureTest, RaisesForACapturedStandardOutputThatNobodyReceives)
{
    pipe.stdoutReceiver.clear();
    pipe.append(stage("spew", "10"));
    EXPECT_THROW(pipe.run(), boost::bad_function_call);
    waitForAllChildren();
}

TEST_F(PipePumpFailureTest, LetsTheExceptionsOfItsCallbacksThrough)
{
    auto const fail = [] { throw std::runtime_error("callback"); };
    feed(10, 10);
    pipe.append(stage("echo"));
    Pipe const prototype = pipe;
    pipe.stdinSource = [&](Chunk&) -> bool {
        fail();
        return true;
    };
    EXPECT_EQ(textOf<std::runtime_error>([&] { pipe.run(); }), "callback");
    pipe = prototype;
    pipe.stdoutReceiver = [&](Chunk const&) { fail(); };
    EXPECT_EQ(textOf<std::runtime_error>([&] { pipe.run(); }), "callback");
    pipe = prototype;
    pipe.exitHandler = [&](unsigned long, int) { fail(); };
    EXPECT_EQ(textOf<std::runtime_error>([&] { pipe.run(); }), "callback");
    waitForAllChildren();
    EXPECT_EQ(__global_handler, nullptr);
}

TEST_F(PipePumpFailureTest, RunsAfterARunThatACallbackEnded)
{
    pipe.append(stage("spew", "1000000"));
    Pipe next = pipe;
    pipe.stdoutReceiver = [](Chunk const&) { throw std::runtime_error("enough"); };
    EXPECT_THROW(pipe.run(), std::runtime_error);
    waitForAllChildren();
    EXPECT_EQ(next.run(), 0);
    EXPECT_EQ(out.size(), 1000000U);
}

TEST_F(PipePumpFailureTest, NamesTheCallThatFailed)
{
    feed(1, 5);
    pipe.append(stage("echo"));
    Pipe const prototype = pipe;
    // The source runs after everything is launched. The next call of that name fails.
    auto const failing = [&](char const* call, int code) {
        pipe = prototype;
        pipe.stdinSource = [&, call, code](Chunk& chunk) {
            CallFailure::set(call, code);
            return prototype.stdinSource(chunk);
        };
        std::string const text = textOf<SystemError>([&] { pipe.run(); });
        waitForAllChildren();
        return text;
    };
    EXPECT_EQ(failing("poll", ENOMEM), "select: Cannot allocate memory");
    EXPECT_EQ(failing("close", EIO), "close: Input/output error");
    EXPECT_EQ(failing("write", EIO), "write: Input/output error");
}

TEST_F(PipePumpFailureTest, NamesAFailedReadOfAChannel)
{
    pipe.append(stage("spew", "100000")); // more than fits in a pipe: it cannot have ended yet
    pipe.stdoutReceiver = [](Chunk const&) { CallFailure::set("read", EIO); };
    EXPECT_EQ(textOf<SystemError>([&] { pipe.run(); }), "read: Input/output error");
    waitForAllChildren();
}

TEST_F(PipePumpFailureTest, FailsWhenADescriptorCannotBeMadeNonBlocking)
{
    feed(1, 5);
    pipe.append(stage("echo"));
    Pipe const prototype = pipe;
    // Before these come three ends made close-on-exec, four calls for the self-pipe and the
    // first of the six, whose number is that of a call in the child as well.
    for (int call = 9; call <= 13; ++call) {
        pipe = prototype;
        CallFailure const failure("fcntl", EINVAL, call);
        EXPECT_EQ(textOf<SystemError>([&] { pipe.run(); }), "fcntl: Invalid argument") << call;
        waitForAllChildren();
    }
}

TEST_F(PipePumpFailureTest, FailsWhenItsInputIsClosedUnderneath)
{
    feed(1000, 100000);
    auto const source = pipe.stdinSource;
    pipe.stdinSource = [&](Chunk& chunk) {
        for (int const fd : openDescriptors())
            if (descriptors.count(fd) == 0 && (fcntl(fd, F_GETFL) & O_ACCMODE) == O_WRONLY &&
                (fcntl(fd, F_GETFD) & FD_CLOEXEC))
                close(fd);
        return source(chunk);
    };
    pipe.append(stage("echo"));
    EXPECT_EQ(textOf<SystemError>([&] { pipe.run(); }), "select: Bad file descriptor");
    waitForAllChildren();
}

TEST_F(PipePumpFailureTest, RaisesForAStageThatIsNotInTheTable)
{
    ProcessSetCatcher catcher;
    ProcessLaunch launches[1];
    pipe.stderrMode = Inherit;
    pipe.append(stage("exit", "0"));
    launchAll(pipe.stages, DevNull, Capture, catcher, launches, pipe.statuses);
    launches[0].pid = -7;
    EXPECT_EQ(textOf<std::out_of_range>([&] { PipePump(pipe, catcher, launches).run(); }),
              "no such pid");
}
