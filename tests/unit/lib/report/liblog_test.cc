#include "lib/report/liblog.h"

#include "support/child_run.h"
#include "support/memory_faults.h"

#include <gtest/gtest.h>

#include <cerrno>
#include <string>

#include <unistd.h>

TEST(Messlog2, PrintsTheReportOnBothStreamsWhateverTheOutputArgument)
{
    for (int const mess_out : {0, 1, 7}) {
        auto const run = printedBy([=] { messlog2(0, mess_out, "user %s not found", "x"); });
        EXPECT_EQ(run.err, "user x not found\n");
        EXPECT_EQ(run.out, "user x not found\n");
    }
}

TEST(Messlog2, AddsALineForErrnoWhileItIsSet)
{
    auto const run = printedBy([] {
        errno = ENOENT;
        messlog2(0, 0, "text");
    });
    EXPECT_EQ(run.err, "text\nSystem error 2: No such file or directory\n");
    EXPECT_EQ(run.out, run.err);
}

TEST(Messlog2, AddsTheSecondLineAfterATextWithNewline)
{
    auto const run = printedBy([] {
        errno = EACCES;
        messlog2(0, 0, "text\n");
    });
    EXPECT_EQ(run.out, "text\n\nSystem error 13: Permission denied\n");
}

TEST(Messlog2, AddsNoNewlineToATextThatHasOne)
{
    auto const run = printedBy([] { messlog2(0, 0, "text\n"); });
    EXPECT_EQ(run.err, "text\n");
}

TEST(Messlog2, KeepsErrnoForItsCaller)
{
    auto const run = inChild([] {
        errno = ENOSPC;
        messlog2(0, 0, "text");
        return errno == ENOSPC ? 0 : 1;
    });
    EXPECT_EQ(run.status, 0);
}

TEST(Messlog2, ReturnsZeroForStatusZero)
{
    auto const run = inChild([] { return messlog2(0, 0, "text"); });
    EXPECT_EQ(run.status, 0);
}

TEST(Messlog2, EndsTheProcessWithAStatusOtherThanZero)
{
    auto const run = inChild([] {
        messlog2(3, 0, "last words");
        return 0;
    });
    EXPECT_EQ(run.status, 3);
    EXPECT_EQ(run.err, "last words\n");
    EXPECT_EQ(run.out, "last words\n");
}

TEST(Messlog2, PrintsALongReportWhole)
{
    for (size_t const length : {4094UL, 4095UL, 4096UL, 100000UL}) {
        std::string const text(length, 'a');
        auto const run = printedBy([&] {
            errno = ENOENT;
            messlog2(0, 0, "%s", text.c_str());
        });
        EXPECT_EQ(run.err, text + "\nSystem error 2: No such file or directory\n") << length;
    }
}

TEST(Messlog2, EndsTheProcessEvenWithoutMemoryForTheReport)
{
    auto const run = inChild([] {
        errno = ENOENT;
        {
            AllocationFailure const failure(1);
            messlog2(0, 0, "text");
        }
        AllocationFailure const failure(1);
        messlog2(3, 0, "text");
        return 0;
    });
    EXPECT_EQ(run.status, 3);
    EXPECT_EQ(run.err, "Can't allocate memory for error message\n"
                       "Can't allocate memory for error message\n");
    EXPECT_EQ(run.out, run.err);
}

TEST(Messlog2, CutsALongReportThatItHasNoMemoryFor)
{
    auto const run = printedBy([] {
        errno = ENOENT;
        AllocationFailure const failure(2);
        messlog2(0, 0, "%s", std::string(5000, 'a').c_str());
    });
    EXPECT_EQ(run.err, std::string(4095, 'a') + "\nSystem error 2: No such file or directory\n");
    EXPECT_EQ(run.out, run.err);
}

TEST(Messlog2, HasNoSecondLineForItsOwnLackOfMemory)
{
    auto const run = inChild([] {
        AllocationFailure const failure(2);
        messlog2(0, 0, "%s", std::string(5000, 'a').c_str());
        return errno;
    });
    EXPECT_EQ(run.status, 0);
    EXPECT_EQ(run.err, std::string(4095, 'a') + "\n");
}

TEST(Messlog2, CutsASecondLineThatItHasNoMemoryFor)
{
    auto const run = printedBy([] {
        errno = ENOENT;
        AllocationFailure const failure(2);
        messlog2(0, 0, "%s", std::string(4082, 'a').c_str());
    });
    EXPECT_EQ(run.err, std::string(4082, 'a') + "\nSystem error\n");
    EXPECT_EQ(run.out, run.err);
}

TEST(Messlog2, NeverTakesAReportsTextAsAFormat)
{
    auto const run = printedBy([] { messlog2(0, 0, "%s", "%s%n%d"); });
    EXPECT_EQ(run.err, "%s%n%d\n");
}

TEST(ExMesslog, LeavesNothingInTheBuffersOfTheStreams)
{
    auto const run = printedBy([] {
        ex_messlog("text", 0, 0);
        _exit(0);
    });
    EXPECT_EQ(run.err, "text\n");
    EXPECT_EQ(run.out, "text\n");
}

TEST(ExMesslog, PrefixesTheProgramsBaseNameWhenKnown)
{
    auto const run = printedBy([] {
        PROGNAME = "/usr/sbin/tool";
        ex_messlog("text", 0, 0);
        PROGNAME = "plain";
        ex_messlog("text", 0, 0);
    });
    EXPECT_EQ(run.err, "tool: text\nplain: text\n");
    EXPECT_EQ(run.out, run.err);
}

TEST(ExMesslog, HasNoPrefixWithoutABaseName)
{
    EXPECT_EQ(PROGNAME, nullptr);
    auto const run = printedBy([] {
        PROGNAME = "/usr/sbin/";
        ex_messlog("text", 0, 0);
        PROGNAME = "";
        ex_messlog("text", 0, 0);
    });
    EXPECT_EQ(run.err, "text\ntext\n");
}

TEST(ExMesslog, HasNoLineForErrno)
{
    auto const run = printedBy([] {
        errno = ENOENT;
        ex_messlog("text", 0, 0);
    });
    EXPECT_EQ(run.err, "text\n");
}

TEST(ExMesslog, EndsTheProcessUnlessTheStatusIsZero)
{
    EXPECT_EQ(inChild([] { return ex_messlog("text", 0, 0); }).status, 0);
    EXPECT_EQ(inChild([] { return ex_messlog("text", 9, 0) + 1; }).status, 9);
}

TEST(ExMesslog, PrintsAnEmptyTextAsAnEmptyLine)
{
    EXPECT_EQ(printedBy([] { ex_messlog("", 0, 0); }).err, "\n");
}

TEST(Messlog2, ShowsControlBytesOfItsArguments)
{
    auto const run = printedBy([] {
        errno = ENOENT;
        messlog2(0, 0, "no %s\n", "a\nb\x1b");
    });
    EXPECT_EQ(run.err, "no a\\nb\\x1b\n\nSystem error 2: No such file or directory\n");
    EXPECT_EQ(run.out, run.err);
}

TEST(Messlog2, PrintsALongNameWholeAndShown)
{
    auto const run = printedBy([] { messlog2(0, 0, "no %s", std::string(5000, '\n').c_str()); });
    EXPECT_EQ(run.err.size(), 3 + 10000 + 1U);
}
