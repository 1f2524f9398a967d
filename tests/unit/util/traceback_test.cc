#include "util/traceback.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <cstring>
#include <sstream>
#include <string>
#include <vector>

#include <dlfcn.h>
#include <execinfo.h>

namespace {

// The answers of backtrace and backtrace_symbols below.
struct Answers
{
    int frames = 0;
    bool scripted_frames = false;
    bool no_symbols = false;
    std::vector<std::string> symbols;
    int lookups = 0;
};

Answers answers;

class TracebackTest : public ::testing::Test
{
protected:
    void SetUp() override { answers = Answers(); }
    void TearDown() override { answers = Answers(); }

    static void answerFrames(int count)
    {
        answers.scripted_frames = true;
        answers.frames = count;
    }

    static std::string printed(orvek::Traceback const& traceback)
    {
        std::ostringstream out;
        out << traceback;
        return out.str();
    }

    static size_t lines(std::string const& text)
    {
        return static_cast<size_t>(std::count(text.begin(), text.end(), '\n'));
    }
};

// Keeps its input, and how much of it was flushed.
class FlushedBuffer : public std::stringbuf
{
public:
    std::vector<std::string> flushed;

protected:
    int sync() override
    {
        flushed.push_back(str());
        return 0;
    }
};

// Copies strings into one block, as the C library does, so that one free releases them.
char** symbolBlock(std::vector<std::string> const& symbols)
{
    size_t size = symbols.size() * sizeof(char*) + 1;
    for (auto const& symbol : symbols)
        size += symbol.size() + 1;
    auto** const block = static_cast<char**>(malloc(size));
    char* text = reinterpret_cast<char*>(block + symbols.size());
    for (size_t i = 0; i < symbols.size(); ++i) {
        block[i] = text;
        memcpy(text, symbols[i].c_str(), symbols[i].size() + 1);
        text += symbols[i].size() + 1;
    }
    return block;
}

} // namespace

// These replace the C library's functions in this program.
extern "C" int backtrace(void** buffer, int size)
{
    if (answers.scripted_frames) {
        for (int i = 0; i < std::min(answers.frames, size); ++i)
            buffer[i] = reinterpret_cast<void*>(static_cast<size_t>(0x1000 + i));
        return std::min(answers.frames, size);
    }
    using Function = int (*)(void**, int);
    return reinterpret_cast<Function>(dlsym(RTLD_NEXT, "backtrace"))(buffer, size);
}

extern "C" char** backtrace_symbols(void* const* buffer, int size)
{
    ++answers.lookups;
    if (answers.no_symbols)
        return nullptr;
    if (!answers.symbols.empty())
        return symbolBlock(answers.symbols);
    using Function = char** (*)(void* const*, int);
    return reinterpret_cast<Function>(dlsym(RTLD_NEXT, "backtrace_symbols"))(buffer, size);
}

TEST_F(TracebackTest, PrintsAHeadlineAndALineForEachRealFrame)
{
    std::string const text = printed(orvek::Traceback(0));
    EXPECT_EQ(text.rfind("Traceback:\n\t", 0), 0U);
    EXPECT_GE(lines(text), 3U);
}

TEST_F(TracebackTest, KeepsElevenFramesAtMost)
{
    answerFrames(50);
    answers.no_symbols = true;
    EXPECT_EQ(lines(printed(orvek::Traceback(0))), 1U + 11U);
}

TEST_F(TracebackTest, LeavesTheSkippedInnermostFramesOut)
{
    answerFrames(3);
    answers.symbols = {"a", "b", "c"};
    EXPECT_EQ(printed(orvek::Traceback(1)), "Traceback:\n\tb\n\tc\n");
}

TEST_F(TracebackTest, PrintsNothingForASkipAboveTheFrameCount)
{
    answerFrames(3);
    answers.symbols = {"a", "b", "c"};
    EXPECT_EQ(printed(orvek::Traceback(3)), "");
    EXPECT_EQ(printed(orvek::Traceback(99)), "");
}

TEST_F(TracebackTest, CountsAFailedBacktraceAsNoFrames)
{
    answerFrames(-1);
    answers.symbols = {"a"};
    EXPECT_EQ(printed(orvek::Traceback(0)), "");
}

TEST_F(TracebackTest, DemanglesTheNameBetweenTheBracketAndThePlus)
{
    answerFrames(1);
    answers.symbols = {"./tool(_ZN5orvek9TracebackC2Em+0x2f) [0x55]"};
    EXPECT_EQ(printed(orvek::Traceback(0)),
              "Traceback:\n\t./tool(orvek::Traceback::Traceback(unsigned long)+0x2f) [0x55]\n");
}

TEST_F(TracebackTest, DemanglesFrameAfterFrameWithNamesOfAnyLength)
{
    answerFrames(4);
    answers.symbols = {
        "t(_Z1fv+0x1)", "t(main+0x2)",
        "t(_ZNKSt6vectorINSt7__cxx1112basic_stringIcSt11char_traitsIcESaIcEEESaIS5_EE"
        "4sizeEv+0x3)",
        "t(_Z1gi+0x4)"};
    EXPECT_EQ(
        printed(orvek::Traceback(0)),
        "Traceback:\n\tt(f()+0x1)\n\tt(main+0x2)\n"
        "\tt(std::vector<std::__cxx11::basic_string<char, std::char_traits<char>, "
        "std::allocator<char> >, std::allocator<std::__cxx11::basic_string<char, "
        "std::char_traits<char>, std::allocator<char> > > >::size() const+0x3)\n\tt(g(int)+0x4)\n");
}

TEST_F(TracebackTest, PrintsALineUnchangedThatHoldsNoMangledName)
{
    answerFrames(5);
    answers.symbols = {"tool(main+0x1)", "tool(+0x1)", "tool [0x1]", "tool+0x1(_Z1fv)", "too(l"};
    EXPECT_EQ(
        printed(orvek::Traceback(0)),
        "Traceback:\n\ttool(main+0x1)\n\ttool(+0x1)\n\ttool [0x1]\n\ttool+0x1(_Z1fv)\n\ttoo(l\n");
}

TEST_F(TracebackTest, PrintsAddressesWithoutSymbols)
{
    answerFrames(3);
    answers.no_symbols = true;
    EXPECT_EQ(printed(orvek::Traceback(1)), "Traceback addresses:\n\t0x1001\n\t0x1002\n");
}

TEST_F(TracebackTest, FlushesEachLineAtItsEnd)
{
    answerFrames(2);
    FlushedBuffer buffer;
    std::ostream out(&buffer);
    answers.symbols = {"a", "b"};
    out << orvek::Traceback(0);
    EXPECT_EQ(buffer.flushed, (std::vector<std::string>{"Traceback:\n", "Traceback:\n\ta\n",
                                                        "Traceback:\n\ta\n\tb\n"}));
    buffer.str("");
    buffer.flushed.clear();
    answers.no_symbols = true;
    out << orvek::Traceback(1);
    EXPECT_EQ(buffer.flushed, (std::vector<std::string>{"Traceback addresses:\n",
                                                        "Traceback addresses:\n\t0x1001\n"}));
}

TEST_F(TracebackTest, LooksTheSymbolsUpOnceForAllPrints)
{
    answerFrames(1);
    answers.symbols = {"a"};
    orvek::Traceback const traceback(0);
    EXPECT_EQ(answers.lookups, 0);
    EXPECT_EQ(printed(traceback), printed(traceback));
    EXPECT_EQ(answers.lookups, 1);
}

TEST_F(TracebackTest, PrintsTheSameFromACopyThatOutlivesIt)
{
    answerFrames(2);
    answers.symbols = {"a", "b"};
    auto* const first = new orvek::Traceback(1);
    std::string const text = printed(*first);
    orvek::Traceback const copy(*first);
    orvek::Traceback assigned(0);
    assigned = *first;
    delete first;
    EXPECT_EQ(printed(copy), text);
    EXPECT_EQ(printed(assigned), text);
}
