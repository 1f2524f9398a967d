#include "process/child_start.h"

#include "build_paths.h"
#include "process/process_launch.h"
#include "support/child_run.h"
#include "support/launch_test.h"
#include "support/temp_dir.h"
#include "util/errors.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <cstdio>
#include <cstdlib>
#include <filesystem>
#include <stdexcept>
#include <string>

using namespace orvek::process;
using orvek::FdOwner;
using orvek::SystemError;
using ::testing::StartsWith;

namespace {

ProcessLaunch start(std::initializer_list<char const*> arguments, int in, int out, int err)
{
    std::vector<char const*> argv = {CHILD_MAIN};
    argv.insert(argv.end(), arguments);
    argv.push_back(nullptr);
    ProcessLaunch child({.argv = argv.data(),
                         .path = CHILD_MAIN,
                         .stdinMode = in,
                         .stdoutMode = out,
                         .stderrMode = err});
    child.waitExec();
    return child;
}

FdOwner openForWriting(std::string const& path)
{
    return FdOwner(open(path.c_str(), O_WRONLY | O_CREAT | O_APPEND, 0600));
}

class ChildStreamsTest : public LaunchTest
{
protected:
    // Runs "say" with these modes and waits for it.
    static void say(int out, int err)
    {
        EXPECT_EQ(start({"say", "O", "E"}, DevNull, out, err).waitExit(), 0);
    }

    static std::string failureToStart(int in, int out, int err)
    {
        return textOf<SystemError>([=] { start({"exit", "0"}, in, out, err); });
    }

    static std::string refusalToStart(int in, int out, int err)
    {
        return textOf<std::invalid_argument>([=] { start({"exit", "0"}, in, out, err); });
    }

    TempDir const dir;
};

} // namespace

TEST_F(ChildStreamsTest, AreCapturedEachByAPipeOfItsOwn)
{
    ProcessLaunch child = start({"say", "O", "E"}, Capture, Capture, Capture);
    EXPECT_EQ(readAll(child.stdoutPipe.fd), "O");
    EXPECT_EQ(readAll(child.stderrPipe.fd), "E");
    EXPECT_EQ(child.waitExit(), 0);
}

TEST_F(ChildStreamsTest, FeedACapturedStandardInput)
{
    ProcessLaunch child = start({"echo"}, Capture, Capture, DevNull);
    EXPECT_EQ(write(child.stdinPipe.fd, "hello", 5), 5);
    child.stdinPipe.close();
    EXPECT_EQ(readAll(child.stdoutPipe.fd), "hello");
    EXPECT_EQ(child.waitExit(), 0);
}

TEST_F(ChildStreamsTest, AreAllTheChildHasOfItsPipes)
{
    ProcessLaunch child = start({"report"}, Capture, Capture, Capture);
    std::string expected = "fds:";
    for (int const fd : descriptors)
        expected += " " + std::to_string(fd);
    EXPECT_THAT(readAll(child.stdoutPipe.fd), StartsWith(expected + "\n"));
    EXPECT_EQ(child.waitExit(), 0);
}

TEST_F(ChildStreamsTest, AreInPlaceAndAloneWhenTheSetupRuns)
{
    size_t const expected = descriptors.size() + 1; // and the report pipe
    char const* const argv[] = {CHILD_MAIN, "echo", nullptr};
    auto const setup = [=] {
        dprintf(1, openDescriptors().size() == expected ? "alone" : "not alone");
    };
    ProcessLaunch child({.argv = argv,
                         .path = CHILD_MAIN,
                         .childSetup = setup,
                         .stdinMode = Capture,
                         .stdoutMode = Capture,
                         .stderrMode = Capture});
    child.waitExec();
    child.stdinPipe.close();
    EXPECT_EQ(readAll(child.stdoutPipe.fd), "alone");
    EXPECT_EQ(child.waitExit(), 0);
}

TEST_F(ChildStreamsTest, AndAllElseIsInPlaceWhenTheSetupRuns)
{
    FdOwner const other(fcntl(0, F_DUPFD, 70));
    char const* const argv[] = {CHILD_MAIN, "exit", "0", nullptr};
    auto const setup = [this] {
        bool const in_directory = std::filesystem::current_path() == dir.path();
        bool const closed = openDescriptors().size() == 4; // the streams and the report pipe
        bool const in_session = getsid(0) == getpid();
        dprintf(1, "%d%d%d", in_directory, closed, in_session);
    };
    ProcessLaunch child({.argv = argv,
                         .path = CHILD_MAIN,
                         .cwd = dir.path().c_str(),
                         .closeDescriptors = true,
                         .newSession = true,
                         .childSetup = setup,
                         .stdinMode = DevNull,
                         .stdoutMode = Capture});
    child.waitExec();
    EXPECT_EQ(readAll(child.stdoutPipe.fd), "111");
    EXPECT_EQ(child.waitExit(), 0);
}

TEST_F(ChildStreamsTest, OfAFailedChildEndInAFullExit)
{
    char const* const argv[] = {"x", nullptr};
    auto const setup = [] { atexit([] { dprintf(1, "left by exit"); }); };
    ProcessLaunch child({.argv = argv,
                         .path = "/no/such",
                         .childSetup = setup,
                         .stdinMode = DevNull,
                         .stdoutMode = Capture});
    EXPECT_THROW(child.waitExec(), SystemError);
    EXPECT_EQ(readAll(child.stdoutPipe.fd), "left by exit");
}

TEST_F(ChildStreamsTest, LeaveAFailedChildNothingToWriteAgain)
{
    FILE* const file = fopen((dir / "file").c_str(), "w");
    ASSERT_NE(file, nullptr);
    fputs("once", file);
    char const* const argv[] = {"x", nullptr};
    ProcessLaunch child({.argv = argv, .path = "/no/such", .stdinMode = DevNull});
    EXPECT_THROW(child.waitExec(), SystemError);
    fclose(file);
    EXPECT_EQ(readFile(dir / "file"), "once");
}

TEST_F(ChildStreamsTest, LeaveTheToolOnlyOneEndPerCapture)
{
    ProcessLaunch child = start({"exit", "0"}, Capture, Capture, Capture);
    EXPECT_EQ(openDescriptors().size(), descriptors.size() + 3);
    EXPECT_EQ(child.controlPipe.readEnd.fd, -1);
    EXPECT_EQ(child.controlPipe.writeEnd.fd, -1);
    EXPECT_EQ(child.waitExit(), 0);
}

TEST_F(ChildStreamsTest, OfAnEarlierLaunchAreClosedInALaterChild)
{
    ProcessLaunch first = start({"count"}, Capture, Capture, DevNull);
    ProcessLaunch second = start({"echo"}, Capture, DevNull, DevNull);
    first.stdinPipe.close();
    EXPECT_EQ(readAll(first.stdoutPipe.fd), "0");
    EXPECT_EQ(first.waitExit(), 0);
    second.stdinPipe.close();
    EXPECT_EQ(second.waitExit(), 0);
}

TEST_F(ChildStreamsTest, AreTheToolsOwnForInheritAndUnspecified)
{
    for (int const mode : {int(Inherit), int(Unspecified)}) {
        auto const run = inChild([=] {
            return start({"say", "O", "E"}, mode, mode, mode).waitExit();
        });
        EXPECT_EQ(run.status, 0);
        EXPECT_EQ(run.out, "O");
        EXPECT_EQ(run.err, "E");
    }
}

TEST_F(ChildStreamsTest, AreReadFromAndWrittenToDevNull)
{
    auto const run = inChild([] {
        return start({"echo", "suffix"}, DevNull, DevNull, DevNull).waitExit();
    });
    EXPECT_EQ(run.status, 0);
    EXPECT_EQ(run.out + run.err, "");
    ProcessLaunch child = start({"count"}, DevNull, Capture, Inherit);
    EXPECT_EQ(readAll(child.stdoutPipe.fd), "0");
    EXPECT_EQ(child.waitExit(), 0);
}

TEST_F(ChildStreamsTest, OpenDevNullForTheirOwnDirectionOnly)
{
    char const* const argv[] = {CHILD_MAIN, "exit", "0", nullptr};
    auto const setup = [] {
        std::string modes;
        for (int fd = 0; fd < 3; ++fd)
            modes += std::to_string(fcntl(fd, F_GETFL) & O_ACCMODE);
        throw std::runtime_error(modes);
    };
    ProcessLaunch child({.argv = argv,
                         .path = CHILD_MAIN,
                         .childSetup = setup,
                         .stdinMode = DevNull,
                         .stdoutMode = DevNull,
                         .stderrMode = DevNull});
    EXPECT_EQ(textOf<std::runtime_error>([&] { child.waitExec(); }),
              std::to_string(O_RDONLY) + std::to_string(O_WRONLY) + std::to_string(O_WRONLY));
}

TEST_F(ChildStreamsTest, MayBeDescriptorsThatStayTheCallers)
{
    writeFile(dir / "in", "from a file");
    FdOwner const in(open((dir / "in").c_str(), O_RDONLY));
    FdOwner const out = openForWriting(dir / "out");
    EXPECT_EQ(start({"echo"}, in.fd, out.fd, Inherit).waitExit(), 0);
    EXPECT_EQ(readFile(dir / "out"), "from a file");
    EXPECT_NE(fcntl(in.fd, F_GETFD), -1);
    EXPECT_NE(fcntl(out.fd, F_GETFD), -1);
}

TEST_F(ChildStreamsTest, AreClosedInTheChildWhereTheyCameFrom)
{
    FdOwner const out(fcntl(openForWriting(dir / "out").fd, F_DUPFD, 80));
    EXPECT_EQ(start({"report"}, DevNull, out.fd, out.fd).waitExit(), 0);
    std::string const report = readFile(dir / "out");
    EXPECT_EQ(report.substr(0, report.find('\n')).find(" 80"), std::string::npos);
}

TEST_F(ChildStreamsTest, MayShareADescriptor)
{
    FdOwner const file = openForWriting(dir / "both");
    say(file.fd, file.fd);
    EXPECT_EQ(readFile(dir / "both"), "OE");
}

TEST_F(ChildStreamsTest, MergeStandardErrorWithACapturedStandardOutput)
{
    ProcessLaunch child = start({"say", "O", "E"}, DevNull, Capture, MergeWithStdout);
    EXPECT_EQ(child.stderrPipe.fd, -1);
    EXPECT_EQ(readAll(child.stdoutPipe.fd), "OE");
    EXPECT_EQ(child.waitExit(), 0);
}

TEST_F(ChildStreamsTest, MergeStandardErrorWithAGivenStandardOutput)
{
    FdOwner const file = openForWriting(dir / "both");
    say(file.fd, MergeWithStdout);
    EXPECT_EQ(readFile(dir / "both"), "OE");
}

TEST_F(ChildStreamsTest, MergeStandardErrorWithAnInheritedStandardOutput)
{
    auto const run = inChild([] {
        say(Inherit, MergeWithStdout);
        return 0;
    });
    EXPECT_EQ(run.out, "OE");
    EXPECT_EQ(run.err, "");
}

TEST_F(ChildStreamsTest, MayBeExchangedForOneAnother)
{
    auto run = inChild([] {
        say(STDERR_FILENO, STDOUT_FILENO);
        return 0;
    });
    EXPECT_EQ(run.out, "E");
    EXPECT_EQ(run.err, "O");
    run = inChild([] {
        say(STDERR_FILENO, Inherit);
        return 0;
    });
    EXPECT_EQ(run.out, "");
    EXPECT_EQ(run.err, "OE");
    run = inChild([] {
        say(STDERR_FILENO, MergeWithStdout);
        return 0;
    });
    EXPECT_EQ(run.err, "OE");
}

TEST_F(ChildStreamsTest, StayApartWhicheverOfTheToolsStreamsAreClosed)
{
    for (int closed = 1; closed < 8; ++closed) {
        FdOwner const result = openForWriting(dir / std::to_string(closed));
        auto const run = inChild([&] {
            for (int fd = 0; fd < 3; ++fd)
                if (closed & (1 << fd))
                    close(fd);
            ProcessLaunch child = start({"say", "O", "E"}, Capture, Capture, Capture);
            std::string const text = readAll(child.stdoutPipe.fd) + readAll(child.stderrPipe.fd);
            if (child.waitExit() != 0 || text != "OE")
                return 1;
            say(result.fd, DevNull);
            say(DevNull, result.fd);
            return 0;
        });
        EXPECT_EQ(run.status, 0) << "with closed streams " << closed;
        EXPECT_EQ(readFile(dir / std::to_string(closed)), "OE") << closed;
    }
}

TEST_F(ChildStreamsTest, ReportAFailedExecWhicheverStreamsAreClosed)
{
    FdOwner const in(open("/dev/null", O_RDONLY));
    FdOwner const out = openForWriting(dir / "out");
    for (int closed = 1; closed < 8; ++closed) {
        auto const run = inChild([&] {
            for (int fd = 0; fd < 3; ++fd)
                if (closed & (1 << fd))
                    close(fd);
            char const* const argv[] = {"x", nullptr};
            ProcessLaunch child({.argv = argv,
                                 .path = "/no/such",
                                 .stdinMode = in.fd,
                                 .stdoutMode = out.fd,
                                 .stderrMode = MergeWithStdout});
            bool const told = textOf<SystemError>([&] { child.waitExec(); }) ==
                              "execv: No such file or directory";
            return told ? 0 : 1;
        });
        EXPECT_EQ(run.status, 0) << "with closed streams " << closed;
    }
    EXPECT_EQ(readFile(dir / "out"), "");
}

TEST_F(ChildStreamsTest, AreRefusedForAModeThatIsNone)
{
    EXPECT_EQ(refusalToStart(-6, Inherit, Inherit), "invalid FD for stdin");
    EXPECT_EQ(refusalToStart(MergeWithStdout, Inherit, Inherit), "invalid FD for stdin");
    EXPECT_EQ(refusalToStart(Capture, -6, Inherit), "invalid FD for stdout");
    EXPECT_EQ(refusalToStart(Capture, MergeWithStdout, Inherit), "invalid FD for stdout");
    EXPECT_EQ(refusalToStart(Capture, Capture, -6), "invalid FD for stderr");
}

TEST_F(ChildStreamsTest, FailWithTheirOwnWordsWithoutDescriptors)
{
    DescriptorShortage const shortage(1);
    EXPECT_EQ(failureToStart(Capture, Inherit, Inherit), "stdin pipe: Too many open files");
    EXPECT_EQ(failureToStart(Inherit, Capture, Inherit), "stdout pipe: Too many open files");
    EXPECT_EQ(failureToStart(Inherit, Inherit, Capture), "stderr pipe: Too many open files");
    EXPECT_EQ(failureToStart(Inherit, Inherit, Inherit), "pipe: Too many open files");
    EXPECT_EQ(failureToStart(DevNull, DevNull, Inherit),
              "stdout /dev/null open: Too many open files");
    EXPECT_EQ(failureToStart(Inherit, DevNull, DevNull),
              "stderr /dev/null open: Too many open files");
    DescriptorShortage const none(0);
    EXPECT_EQ(failureToStart(DevNull, Inherit, Inherit),
              "stdin /dev/null open: Too many open files");
}

TEST_F(ChildStreamsTest, FailWithTheirOwnWordsWhenDup2Fails)
{
    int const closed = 900;
    EXPECT_EQ(failureToStart(closed, Inherit, Inherit), "stdin dup2: Bad file descriptor");
    EXPECT_EQ(failureToStart(DevNull, closed, Inherit), "stdout dup2: Bad file descriptor");
    EXPECT_EQ(failureToStart(DevNull, DevNull, closed), "stderr dup2: Bad file descriptor");
}
