#include "util/sh_quote.h"

#include <gtest/gtest.h>

#include <cstdio>
#include <memory>
#include <stdexcept>

using orvek::check_shell_arg;
using orvek::sh_quote;

namespace {

// The text after a real shell has read it as one word of a command line.
std::string throughShell(std::string const& quoted)
{
    std::string const command = "printf %s " + quoted;
    std::unique_ptr<FILE, int (*)(FILE*)> const shell(popen(command.c_str(), "r"), pclose);
    std::string text;
    char block[1024];
    while (size_t const got = fread(block, 1, sizeof block, shell.get()))
        text.append(block, got);
    return text;
}

} // namespace

TEST(ShQuote, PutsABackslashBeforeABlank)
{
    EXPECT_EQ(sh_quote("a b"), "a\\ b");
}

TEST(ShQuote, PutsANewlineBetweenSingleQuotes)
{
    EXPECT_EQ(sh_quote("a\nb"), "a'\n'b");
}

TEST(ShQuote, LeavesSafeBytesAsTheyAre)
{
    std::string const safe = "azAZ09_-+=,./:@%^]{}!";
    EXPECT_EQ(sh_quote(safe), safe);
}

TEST(ShQuote, LeavesAnEmptyTextEmpty)
{
    EXPECT_EQ(sh_quote(""), "");
}

TEST(ShQuote, EscapesEveryUnsafeByte)
{
    for (char const byte : std::string("\t \"#$&'()*;<>?[\\`|~"))
        EXPECT_EQ(sh_quote(std::string(1, byte)), std::string("\\") + byte);
}

TEST(ShQuote, PassesBytesAbove127Unchanged)
{
    std::string high;
    for (int i = 128; i < 256; ++i)
        high += static_cast<char>(i);
    EXPECT_EQ(sh_quote(high), high);
    EXPECT_EQ(sh_quote("kein Schlüssel"), "kein\\ Schlüssel");
}

TEST(ShQuote, ReachesAShellAsTyped)
{
    std::string all;
    for (int i = 1; i < 128; ++i)
        all += static_cast<char>(i);
    EXPECT_EQ(throughShell(sh_quote("x" + all)), "x" + all);
    EXPECT_EQ(throughShell(sh_quote("it's $HOME; `id` \"ünïcode\"\n~")),
              "it's $HOME; `id` \"ünïcode\"\n~");
}

TEST(CheckShellArg, RaisesOnAnUnsafeByteOnly)
{
    EXPECT_NO_THROW(check_shell_arg(""));
    EXPECT_NO_THROW(check_shell_arg("safe-name_1.txt"));
    try {
        check_shell_arg("a b");
        ADD_FAILURE() << "accepted";
    } catch (std::runtime_error const& e) {
        EXPECT_STREQ(e.what(), "Internal error: bad escape_chars value");
    }
    EXPECT_THROW(check_shell_arg("\xc3\xbc"), std::runtime_error);
}
