#include "process/child_report.h"

#include "support/call_faults.h"
#include "support/child_run.h"
#include "support/launch_test.h"
#include "util/errors.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <stdexcept>
#include <string>
#include <vector>

using namespace std::string_literals;
using namespace orvek::process;
using orvek::FdOwner;
using orvek::PipeOwner;
using orvek::SystemError;

namespace {

class ChildReportTest : public LaunchTest
{
protected:
    // The report of a child that writes these bytes and ends.
    static ChildReport reportOf(std::string const& bytes)
    {
        PipeOwner ends = orvek::openPipe("pipe");
        fcntl(ends.writeEnd.fd, F_SETPIPE_SZ, 1 << 18);
        EXPECT_EQ(write(ends.writeEnd.fd, bytes.data(), bytes.size()), ssize_t(bytes.size()));
        ends.writeEnd.close();
        ChildReport const report = readReport(ends.readEnd);
        EXPECT_EQ(ends.readEnd.fd, -1);
        return report;
    }

    static std::string writtenBy(std::function<void(int)> const& code)
    {
        PipeOwner ends = orvek::openPipe("pipe");
        code(ends.writeEnd.fd);
        ends.writeEnd.close();
        char bytes[4096];
        ssize_t const got = read(ends.readEnd.fd, bytes, sizeof bytes);
        return std::string(bytes, got > 0 ? size_t(got) : 0);
    }
};

} // namespace

TEST_F(ChildReportTest, HasATypeRecordAndThenAMessageRecord)
{
    EXPECT_EQ(writtenBy([](int fd) { writeException(fd, "std::runtime_error", "no luck"); }),
              "ET: std::runtime_error\0EM: no luck\0"s);
}

TEST_F(ChildReportTest, HasTheErrorNumberInDecimal)
{
    EXPECT_EQ(writtenBy([](int fd) { writeErrorCode(fd, 13); }), "EC: 13\0"s);
    EXPECT_EQ(writtenBy([](int fd) { writeErrorCode(fd, -1); }), "EC: -1\0"s);
}

TEST_F(ChildReportTest, IsWrittenWithOneCallPerTagAndText)
{
    int ends[2];
    ASSERT_EQ(pipe2(ends, O_DIRECT), 0); // each read returns the bytes of one write
    writeException(ends[1], "std::exception", "");
    writeErrorCode(ends[1], 5);
    close(ends[1]);
    char block[100];
    std::vector<std::string> calls;
    for (ssize_t got = 0; (got = read(ends[0], block, sizeof block)) > 0;)
        calls.emplace_back(block, size_t(got));
    close(ends[0]);
    EXPECT_THAT(calls,
                ::testing::ElementsAre("ET: ", "std::exception\0"s, "EM: ", "\0"s, "EC: 5\0"s));
}

TEST_F(ChildReportTest, IsWhollyWrittenAndReadThoughSignalsInterrupt)
{
    for (int call = 1; call <= 5; ++call)
        EXPECT_EQ(writtenBy([call](int fd) {
                      CallFailure const failure("write", EINTR, call);
                      writeException(fd, "SystemError", "m");
                      writeErrorCode(fd, 7);
                  }),
                  "ET: SystemError\0EM: m\0EC: 7\0"s);
    CallFailure const failure("read", EINTR);
    EXPECT_EQ(reportOf("ET: std::exception\0EM: m\0"s).message, "m");
}

TEST_F(ChildReportTest, IsNotWrittenToANegativeDescriptor)
{
    errno = 0;
    writeException(-1, "SystemError", "x");
    EXPECT_EQ(errno, 0);
}

TEST_F(ChildReportTest, IsEmptyAfterASuccessfulExec)
{
    EXPECT_FALSE(reportOf("").type);
}

TEST_F(ChildReportTest, GivesTypeMessageAndCode)
{
    ChildReport const report = reportOf("ET: SystemError\0EM: chdir: x\0EC: 13\0"s);
    EXPECT_EQ(report.type, "SystemError");
    EXPECT_EQ(report.message, "chdir: x");
    EXPECT_EQ(report.code, 13);
}

TEST_F(ChildReportTest, MaySpanAnyNumberOfBlocks)
{
    for (size_t const length : {1000U, 1004U, 1005U, 1024U, 5000U, 100000U}) {
        std::string const message(length, 'm');
        ChildReport const report = reportOf("ET: SystemError\0EM: "s + message + "\0EC: 5\0"s);
        EXPECT_EQ(report.type, "SystemError");
        EXPECT_EQ(report.message, message);
        EXPECT_EQ(report.code, 5);
    }
}

TEST_F(ChildReportTest, TakesATailWithoutItsNulAsTheLastRecord)
{
    ChildReport const report = reportOf("ET: std::exception\0EM: cut of"s);
    EXPECT_EQ(report.type, "std::exception");
    EXPECT_EQ(report.message, "cut of");
}

TEST_F(ChildReportTest, TakesANumberThatIsNoneAsInvalidArgument)
{
    for (char const* const code : {"abc", "", "12x", " 7", "99999999999"})
        EXPECT_EQ(reportOf("ET: SystemError\0EC: "s + code + "\0"s).code, 22) << code;
}

TEST_F(ChildReportTest, PassesOnWhatIsNoRecord)
{
    auto const run = inChild([] {
        ChildReport const report = reportOf("hello\0x\ny\0\0ET"s);
        return report.type ? 1 : 0;
    });
    EXPECT_EQ(run.status, 0);
    EXPECT_EQ(run.err, "child output: hello\nchild output: x\\ny\nchild output: \n"
                       "child output: ET\n");
    EXPECT_EQ(run.out, "");
}

TEST_F(ChildReportTest, KeepsErrno)
{
    PipeOwner ends = orvek::openPipe("pipe");
    ends.writeEnd.close();
    errno = ENOSPC;
    readReport(ends.readEnd);
    EXPECT_EQ(errno, ENOSPC);
}

TEST_F(ChildReportTest, CannotBeReadFromADescriptorThatIsNone)
{
    FdOwner none;
    EXPECT_EQ(textOf<SystemError>([&] { readReport(none); }),
              "control pipe read: Bad file descriptor");
}

TEST_F(ChildReportTest, IsRaisedAsASystemErrorWithItsTextOnce)
{
    try {
        raiseReported({"SystemError", "execvp: No such file or directory", ENOENT});
    } catch (SystemError const& e) {
        EXPECT_STREQ(e.what(), "execvp: No such file or directory");
        EXPECT_EQ(e.code(), ENOENT);
    }
}

TEST_F(ChildReportTest, IsRaisedWithTheErrorsTextWhenItHasNone)
{
    EXPECT_EQ(textOf<SystemError>([] {
                  raiseReported({"SystemError", "Permission denied", EACCES});
              }),
              "Permission denied");
}

TEST_F(ChildReportTest, IsRaisedWithTheCurrentErrnoForCodeZero)
{
    errno = ENOSPC;
    EXPECT_EQ(textOf<SystemError>([] {
                  raiseReported({"SystemError", "setup", 0});
              }),
              "setup: No space left on device");
}

TEST_F(ChildReportTest, IsRaisedWithAMessageWhenItHasNone)
{
    EXPECT_EQ(textOf<std::runtime_error>([] {
                  raiseReported({"std::runtime_error", "", 0});
              }),
              "an error in child process");
    EXPECT_EQ(textOf<SystemError>([] {
                  raiseReported({"SystemError", "", EIO});
              }),
              "an error in child process: Input/output error");
}

TEST_F(ChildReportTest, IsRaisedByItsType)
{
    EXPECT_EQ(textOf<std::runtime_error>([] {
                  raiseReported({"std::runtime_error", "m", 0});
              }),
              "m");
    EXPECT_EQ(textOf<std::exception>([] {
                  raiseReported({"std::exception", "m", 0});
              }),
              std::exception().what());
    EXPECT_EQ(textOf<std::bad_exception>([] {
                  raiseReported({"NoSuchType", "m", 0});
              }),
              std::bad_exception().what());
    EXPECT_EQ(textOf<std::bad_exception>([] {
                  raiseReported({"", "m", 0});
              }),
              std::bad_exception().what());
}
