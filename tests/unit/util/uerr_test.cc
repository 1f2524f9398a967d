#include "util/uerr.h"

#include "support/child_run.h"

#include <gtest/gtest.h>

#include <fstream>

#include <unistd.h>

using orvek::uerr;

TEST(Uerr, ReachesStandardErrorAtOnceAndStandardOutputNotYet)
{
    auto const run = inChild([]() -> int {
        uerr << "unflushed";
        _exit(0); // no destructor flushes
    });
    EXPECT_EQ(run.err, "unflushed");
    EXPECT_EQ(run.out, "");
}

TEST(Uerr, ReachesStandardOutputAtEachFlush)
{
    auto const run = inChild([]() -> int {
        uerr << "one" << std::endl << "two" << std::flush << "three";
        _exit(0);
    });
    EXPECT_EQ(run.err, "one\ntwothree");
    EXPECT_EQ(run.out, "one\ntwo");
}

TEST(Uerr, FlushesStandardErrorToo)
{
    auto const run = inChild([]() -> int {
        // A standard error that holds its input back.
        std::ofstream held("/dev/stderr");
        std::cerr.rdbuf(held.rdbuf());
        std::cerr << std::nounitbuf;
        uerr << "text" << std::flush;
        _exit(0);
    });
    EXPECT_EQ(run.err, "text");
    EXPECT_EQ(run.out, "text");
}

TEST(Uerr, ReachesStandardOutputWhenTheProgramEnds)
{
    auto const run = printedBy([] { uerr << "left over"; });
    EXPECT_EQ(run.err, "left over");
    EXPECT_EQ(run.out, "left over");
}

TEST(Uerr, IsWrittenOnceOnEachStream)
{
    auto const run = printedBy([] { uerr << "text" << std::endl; });
    EXPECT_EQ(run.err, "text\n");
    EXPECT_EQ(run.out, "text\n");
}

TEST(Uerr, StandsInOrderWithWhatStandardOutputWasGiven)
{
    auto const run = printedBy([] {
        std::cout << "before ";
        uerr << "pending ";
        std::cout << "between ";
        uerr << std::flush;
        std::cout << "after";
    });
    EXPECT_EQ(run.out, "before between pending after");
}

TEST(Uerr, PassesEveryByte)
{
    std::string bytes;
    for (int i = 0; i < 256; ++i)
        bytes += static_cast<char>(i);
    auto const run =
        printedBy([&] { uerr.write(bytes.data(), std::streamsize(bytes.size())) << std::flush; });
    EXPECT_EQ(run.err, bytes);
    EXPECT_EQ(run.out, bytes);
}

TEST(UtilityErrorStreamBuf, SkipsEndOfFileAndReturnsWhatItWasGiven)
{
    class Probe : public orvek::UtilityErrorStreamBuf
    {
    public:
        using UtilityErrorStreamBuf::overflow;
        using UtilityErrorStreamBuf::sync;
    };
    auto const run = inChild([] {
        Probe probe;
        bool const passed = probe.overflow(Probe::traits_type::eof()) == Probe::traits_type::eof();
        bool const taken = probe.overflow('a') == 'a' && probe.overflow(0xff) == 0xff;
        return passed && taken && probe.sync() == 0 ? 0 : 1;
    });
    EXPECT_EQ(run.status, 0);
    EXPECT_EQ(run.err, "a\xff");
    EXPECT_EQ(run.out, "a\xff");
}

TEST(UtilityErrorStreamBuf, WritesWhatIsPendingWhenItIsDestroyed)
{
    auto const run = inChild([]() -> int {
        {
            orvek::UtilityErrorStream stream;
            stream << "pending";
        }
        _exit(0);
    });
    EXPECT_EQ(run.out, "pending");
}

TEST(Uerr, ShowsTheControlBytesOfNamesAndTexts)
{
    auto const run = printedBy([] {
        std::string const name = "a\nb";
        uerr << "one\n" << name << 7 << name << ": " << name.c_str() << std::endl;
    });
    EXPECT_EQ(run.err, "one\na\\nb7a\\nb: a\\nb\n");
    EXPECT_EQ(run.out, run.err);
}

TEST(Uerr, KeepsTheNewlinesOfATextWithLines)
{
    auto const run = printedBy(
        [] { uerr << "one: " << orvek::OwnLines{"a\nb\r"} << std::string("\n") << std::endl; });
    EXPECT_EQ(run.err, "one: a\nb\\r\\n\n");
    EXPECT_EQ(run.out, run.err);
}
