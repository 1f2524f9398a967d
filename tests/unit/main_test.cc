#include "commands/do_main.h"
#include "support/child_run.h"

#include <gtest/gtest.h>

#include <stdexcept>

// main of the tool, which is compiled into this program under another name.
int toolMain(int argc, char** argv);

namespace {

std::function<int(int, char**)> command;

// Runs the tool with a command that does this.
ChildRun toolThat(std::function<int(int, char**)> const& does)
{
    return inChild([&] {
        command = does;
        char name[] = "mailvek";
        char word[] = "--try";
        char* words[] = {name, word, nullptr};
        return toolMain(2, words);
    });
}

} // namespace

// Replaces the tool's own do_main.
int do_main(int argc, char** argv)
{
    return command(argc, argv);
}

TEST(Main, EndsWithTheStatusOfTheCommand)
{
    for (int const status : {0, 1, 7, -1}) {
        auto const run = toolThat([&](int, char**) { return status; });
        EXPECT_EQ(run.status, status & 0xff);
        EXPECT_EQ(run.out, "");
        EXPECT_EQ(run.err, "");
    }
}

TEST(Main, HandsItsArgumentsOn)
{
    auto const run = toolThat(
        [](int argc, char** argv) { return argc == 2 && std::string(argv[1]) == "--try" ? 0 : 1; });
    EXPECT_EQ(run.status, 0);
}

TEST(Main, ReportsAnExceptionOnBothStreamsAndEndsWithOne)
{
    auto const run =
        toolThat([](int, char**) -> int { throw std::runtime_error("no such domain"); });
    EXPECT_EQ(run.status, 1);
    EXPECT_EQ(run.err, "Fatal error: std::runtime_error(no such domain)\n");
    EXPECT_EQ(run.out, run.err);
}

TEST(Main, ReportsANonExceptionOnBothStreamsWithStatusTwo)
{
    auto const run = toolThat([](int, char**) -> int { throw "a mere string"; });
    EXPECT_EQ(run.status, 2);
    EXPECT_EQ(run.err, "UNSPECIFIED ERROR OCCURED\n");
    EXPECT_EQ(run.out, run.err);
}
