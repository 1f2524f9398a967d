#include "util/report_exception.h"

#include "support/child_run.h"
#include "util/errors.h"
#include "util/uerr.h"

#include <gtest/gtest.h>

#include <unistd.h>

namespace {

ChildRun reportOf(std::exception const& e)
{
    return printedBy([&] { orvek::reportException<std::exception>(e); });
}

class Traced : public std::exception, public orvek::Traceback
{
public:
    Traced() : Traceback(0) {}
    char const* what() const noexcept override { return "traced"; }
};

class Speechless : public std::exception
{
public:
    char const* what() const noexcept override { return nullptr; }
};

} // namespace

TEST(ReportException, NamesTheDynamicTypeAndTheTextOnBothStreams)
{
    auto const run = reportOf(orvek::SystemError("execvp", 2));
    EXPECT_EQ(run.err, "Fatal error: orvek::SystemError(execvp: No such file or directory)\n");
    EXPECT_EQ(run.out, run.err);
}

TEST(ReportException, DemanglesTemplatesAndTheStandardsOwnTypes)
{
    EXPECT_EQ(reportOf(orvek::ExSystemError<2>("x")).err,
              "Fatal error: orvek::ExSystemError<2>(x: No such file or directory)\n");
    EXPECT_EQ(reportOf(std::bad_alloc()).err, "Fatal error: std::bad_alloc(std::bad_alloc)\n");
}

TEST(ReportException, NamesTheLibrarysClassForALibraryErrorAlone)
{
    boost::system::error_code const code(EROFS, boost::system::system_category());
    EXPECT_EQ(
        reportOf(orvek::mail::LibraryError("x", "/at", code)).err,
        "Fatal error: boost::filesystem::filesystem_error(x: Read-only file system: \"/at\")\n");
    EXPECT_EQ(reportOf(orvek::mail::FSError("x", "/at", code)).err,
              "Fatal error: orvek::mail::FSError(x: Read-only file system: \"/at\")\n");
}

TEST(ReportException, NeverTakesTheTextAsAFormat)
{
    EXPECT_EQ(reportOf(std::runtime_error("100%s\n%n")).err,
              "Fatal error: std::runtime_error(100%s\\n%n)\n");
}

TEST(ReportException, PrintsTheStackAfterTheReportOfATracedException)
{
    auto const run = reportOf(Traced());
    EXPECT_EQ(run.err.find("Fatal error: "), 0U);
    EXPECT_NE(run.err.find("Traced(traced)\nTraceback:\n\t"), std::string::npos);
    EXPECT_EQ(run.out, run.err);
}

TEST(ReportException, StopsAtANullTextAsTheStreamDoes)
{
    auto const run = inChild([] {
        orvek::reportException<std::exception>(Speechless());
        return orvek::uerr.bad() ? 0 : 1;
    });
    EXPECT_EQ(run.status, 0);
    EXPECT_EQ(run.err, "Fatal error: (anonymous namespace)::Speechless(");
    EXPECT_EQ(run.out, run.err);
}

TEST(ReportFatalError, StopsAtANullTypeNameAsTheStreamDoes)
{
    auto const run = inChild([] {
        orvek::detail::reportFatalError(nullptr, {"text", false}, nullptr);
        return orvek::uerr.bad() ? 0 : 1;
    });
    EXPECT_EQ(run.status, 0);
    EXPECT_EQ(run.err, "Fatal error: ");
}

TEST(ReportFatalError, SkipsTheMarkInFrontOfALocalTypesName)
{
    auto const run = printedBy([] {
        orvek::detail::reportFatalError("*St9bad_alloc", {"text", false}, nullptr);
    });
    EXPECT_EQ(run.err, "Fatal error: std::bad_alloc(text)\n");
}

TEST(ReportFatalError, PrintsANameAsItIsThatCannotBeDemangled)
{
    auto const run = printedBy([] {
        orvek::detail::reportFatalError("no mangled name", {"text", false}, nullptr);
    });
    EXPECT_EQ(run.err, "Fatal error: no mangled name(text)\n");
}

TEST(ReportException, ShowsControlBytesOfTheText)
{
    auto const run =
        printedBy([] { orvek::reportException<std::exception>(std::runtime_error("no a\nb")); });
    EXPECT_EQ(run.err, "Fatal error: std::runtime_error(no a\\nb)\n");
    EXPECT_EQ(run.out, run.err);
}

TEST(ReportException, KeepsTheLinesOfAPostfixError)
{
    using orvek::mail::postfix::PostfixDatabaseError;
    auto const run = printedBy(
        [] { orvek::reportException<std::exception>(PostfixDatabaseError("one\ntwo\x1b\n")); });
    EXPECT_EQ(run.err,
              "Fatal error: orvek::mail::postfix::PostfixDatabaseError(one\ntwo\\x1b\n)\n");
}

TEST(ReportUntypedException, SaysThatTheErrorIsUnspecified)
{
    auto const run = printedBy([] { orvek::reportUntypedException(); });
    EXPECT_EQ(run.err, "UNSPECIFIED ERROR OCCURED\n");
    EXPECT_EQ(run.out, "UNSPECIFIED ERROR OCCURED\n");
}

TEST(ReportException, ReachesStandardOutputBeforeTheProgramEnds)
{
    auto const run = inChild([]() -> int {
        orvek::reportException<std::exception>(std::runtime_error("text"));
        _exit(0);
    });
    EXPECT_EQ(run.out, "Fatal error: std::runtime_error(text)\n");
}

TEST(ReportUntypedException, ReachesStandardOutputBeforeTheProgramEnds)
{
    auto const run = inChild([]() -> int {
        orvek::reportUntypedException();
        _exit(0);
    });
    EXPECT_EQ(run.out, "UNSPECIFIED ERROR OCCURED\n");
}
