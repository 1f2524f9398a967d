#include "util/errors.h"

#include <gtest/gtest.h>

#include <cstring>
#include <typeinfo>

using namespace orvek;

namespace {

template<class Expected>
void expectRaised(int code)
{
    try {
        throwSystemError("x", code);
    } catch (SystemError const& e) {
        EXPECT_EQ(typeid(e), typeid(Expected));
        EXPECT_EQ(e.code(), code);
        EXPECT_EQ(e.what(), std::string("x: ") + strerror(code));
    }
}

} // namespace

TEST(SystemError, SaysTheMessageAndTheTextOfTheCode)
{
    EXPECT_STREQ(SystemError("select", EINTR).what(), "select: Interrupted system call");
}

TEST(SystemError, SaysTheCodesTextForAnEmptyMessage)
{
    EXPECT_STREQ(SystemError("", ENOENT).what(), "No such file or directory");
}

TEST(SystemError, SaysTheSameTextAgainWhateverErrnoBecomes)
{
    errno = EACCES;
    SystemError const error("open", 0);
    std::string const first = error.what();
    errno = ENOSPC;
    EXPECT_EQ(first, "open: Permission denied");
    EXPECT_EQ(error.what(), first);
}

TEST(SystemError, TakesTheErrnoOfItsConstructionForCodeZero)
{
    errno = ENOSPC;
    SystemError const error("write", 0);
    errno = EACCES;
    EXPECT_EQ(error.code(), ENOSPC);
    EXPECT_STREQ(error.what(), "write: No space left on device");
}

TEST(SystemError, KeepsItsTextThroughACopy)
{
    SystemError const error("read", EIO);
    SystemError const before(error);
    EXPECT_STREQ(before.what(), "read: Input/output error");
    EXPECT_STREQ(SystemError(before).what(), "read: Input/output error");
}

TEST(ThrowSystemError, RaisesOneTypeForEachOfFiveNumbers)
{
    expectRaised<ExSystemError<1>>(EPERM);
    expectRaised<ExSystemError<2>>(ENOENT);
    expectRaised<ExSystemError<4>>(EINTR);
    expectRaised<ExSystemError<10>>(ECHILD);
    expectRaised<ExSystemError<11>>(EAGAIN);
    EXPECT_THROW(throwSystemError("x", 2), ExSystemError<ENOENT>);
}

TEST(ThrowSystemError, RaisesAPlainErrorForAnyOtherNumber)
{
    expectRaised<SystemError>(13);
    expectRaised<SystemError>(ENOSPC);
    EXPECT_THROW(throwSystemError("x", 13), SystemError);
}

TEST(ThrowSystemError, RaisesAPlainErrorForCodeZeroWhateverErrnoIs)
{
    errno = ENOENT;
    try {
        throwSystemError("x", 0);
    } catch (SystemError const& e) {
        EXPECT_EQ(typeid(e), typeid(SystemError));
        EXPECT_EQ(e.code(), ENOENT);
        EXPECT_STREQ(e.what(), "x: No such file or directory");
    }
}

TEST(PostfixErrors, AreCaughtByWhatTheyHaveInCommon)
{
    using namespace orvek::mail::postfix;
    EXPECT_THROW(throw PostfixConfigurationError("configuration"), PostfixError);
    EXPECT_THROW(throw PostfixDatabaseError("database"), PostfixError);
    EXPECT_STREQ(PostfixDatabaseError("database").what(), "database");
}

TEST(NotSupportedError, SaysItsText)
{
    NotSupportedError const error("short names");
    EXPECT_STREQ(error.what(), "short names");
    EXPECT_NE(dynamic_cast<std::runtime_error const*>(&error), nullptr);
}

TEST(FSError, IsTheFilesystemLibrarysErrorWithItsPathsAndText)
{
    boost::system::error_code const code(ENOENT, boost::system::system_category());
    try {
        throw orvek::mail::FSError("rename", "/from", "/to", code);
    } catch (boost::filesystem::filesystem_error const& e) {
        EXPECT_EQ(e.path1(), "/from");
        EXPECT_EQ(e.path2(), "/to");
        EXPECT_EQ(e.code(), code);
        EXPECT_STREQ(e.what(), "rename: No such file or directory: \"/from\", \"/to\"");
    }
}

TEST(FSError, LeavesEmptyPathsOutOfItsText)
{
    boost::system::error_code const code(EINVAL, boost::system::system_category());
    EXPECT_STREQ(orvek::mail::FSError("chmod", "", code).what(), "chmod: Invalid argument");
    EXPECT_STREQ(orvek::mail::FSError("chmod", "/at", code).what(),
                 "chmod: Invalid argument: \"/at\"");
}

TEST(DoubleError, HasAHeadAndTailAroundTheLostName)
{
    using namespace orvek::mail::postfix;
    EXPECT_EQ(std::string(doubleErrorHead) + "virtual" + doubleErrorTail,
              "CRITICAL ERROR: Unable to properly restore virtual used by Orvek.\n"
              "Mail system may be not usable at the moment and it cannot be repaired "
              "automatically.\n"
              "Constact Tessarine support to resolve this issue.");
}
