#include "lib/programs/util_exec.h"

#include "lib/programs/forkexec.h"
#include "support/host_test.h"
#include "support/shell_script.h"
#include "support/temp_dir.h"
#include "support/tidy_run.h"

#include <gtest/gtest.h>

#include <cstdio>
#include <filesystem>
#include <string>

#include <sys/stat.h>

namespace {

constexpr char slash_report[] =
    "Utility name 'a/b' is invalid. Use only utility name without path.\n";

void print(int result)
{
    printf("[%d]", result);
}

// A script that writes down how it was called.
std::string echoScript(std::string const& out)
{
    return "#!/bin/sh\necho \"$0|$*|$#\" > " + out + "\nexit 4\n";
}

void writeProgram(std::string const& path, std::string const& text)
{
    std::filesystem::create_directories(std::filesystem::path(path).parent_path());
    writeFile(path, text);
    chmod(path.c_str(), 0755);
}

int pathExecRaw(char const* path, ...)
{
    va_list args;
    va_start(args, path);
    int const result = path_exec_raw(path, args);
    va_end(args);
    return result;
}

} // namespace

TEST(PathExec, PutsThePathBeforeTheListAndReportsAFailure)
{
    auto const run = tidyRun([] {
        print(path_exec(shell, "-c", "tr '\\0' ' ' < /proc/$$/cmdline >&2; exit 3", nullptr));
    });
    EXPECT_EQ(run.err, "/bin/sh execution failed:\n"
                       "/bin/sh -c tr '\\0' ' ' < /proc/$$/cmdline >&2; exit 3 \n");
    EXPECT_EQ(run.out, run.err + "[3]");
    EXPECT_EQ(run.status, 0);
}

TEST(PathExec, IsSilentAboutAProgramThatSucceeds)
{
    auto const run =
        tidyRun([] { print(path_exec(shell, "-c", "echo result; echo x >&2", nullptr)); });
    EXPECT_EQ(run.out, "[0]");
    EXPECT_EQ(run.err, "");
    EXPECT_EQ(run.status, 0);
}

TEST(PathExec, CutsTheArgumentsBehindThePathAtNinetyNine)
{
    auto const run = tidyRun(
        [] { print(path_exec(shell, "-c", "exit $#", "zero", HUNDRED_ARGUMENTS, nullptr)); });
    EXPECT_EQ(run.out, "/bin/sh execution failed (no output)\n[96]");
}

TEST(PathExecRaw, TakesTheArgumentsOfItsCaller)
{
    auto const run =
        tidyRun([] { print(pathExecRaw(shell, "-c", "exit $1", "zero", "7", nullptr)); });
    EXPECT_EQ(run.out, "/bin/sh execution failed (no output)\n[7]");
    EXPECT_EQ(run.status, 0);
}

TEST(UtilExec, RefusesANameWithASlashAndStartsNothing)
{
    auto const run = tidyRun([] { print(util_exec("a/b", "argument", nullptr)); });
    EXPECT_EQ(run.err, slash_report);
    EXPECT_EQ(run.out, std::string(slash_report) + "[-1]");
    EXPECT_EQ(run.status, 0);
}

TEST(UtilExecArgs, RefusesANameWithASlashAndStartsNothing)
{
    auto const run = tidyRun([] { print(util_exec_args("a/b", Script("").args())); });
    EXPECT_EQ(run.err, slash_report);
    EXPECT_EQ(run.out, std::string(slash_report) + "[-1]");
    EXPECT_EQ(run.status, 0);
}

TEST(UtilLibexec, LooksForTheProgramInTheProductsOwnDirectory)
{
    auto const run = tidyRun([] { print(util_libexec("no-such-program", "argument", nullptr)); });
    EXPECT_EQ(run.err, "/usr/lib64/orvek-9.0/no-such-program execution failed:\n"
                       "fork_execv: execv(\"/usr/lib64/orvek-9.0/no-such-program\") failed: "
                       "No such file or directory\n");
    EXPECT_EQ(run.out, run.err + "[255]");
    EXPECT_EQ(run.status, 0);
}

TEST(UtilLibexec, CutsAPathThatDoesNotFit)
{
    std::string const name(5000, 'a');
    std::string const path = ("/usr/lib64/orvek-9.0/" + name).substr(0, 4095);
    auto const run = tidyRun([&] { util_libexec(name.c_str(), nullptr); });
    EXPECT_TRUE(run.err.starts_with(path + " execution failed:\n"));
    EXPECT_EQ(run.status, 0);
}

class UtilExecOnHost : public HostTest
{
protected:
    void TearDown() override
    {
        std::filesystem::remove(utility);
        HostTest::TearDown();
    }

    TempDir dir;
    std::string out = dir / "out";
    std::string name = "mailvek-unit-test";
    std::string utility = "/usr/local/orv/admin/bin/" + name;
};

TEST_F(UtilExecOnHost, RunsAUtilityOfTheProductUnderItsWholePath)
{
    writeProgram(utility, echoScript(out));
    auto const run = tidyRun([&] { print(util_exec(name.c_str(), "one two", "three", nullptr)); });
    EXPECT_EQ(readFile(out), utility + "|one two three|2\n");
    EXPECT_TRUE(run.out.ends_with("[4]")) << run.out;
    EXPECT_EQ(run.status, 0);
}

TEST_F(UtilExecOnHost, CutsTheArgumentsOfAUtilityAtNinetyNine)
{
    writeProgram(utility, "#!/bin/sh\necho $# > " + out + "\n");
    auto const run = tidyRun([&] { util_exec(name.c_str(), HUNDRED_ARGUMENTS, "last", nullptr); });
    EXPECT_EQ(readFile(out), "99\n");
    EXPECT_EQ(run.status, 0);
}

TEST_F(UtilExecOnHost, TakesTheVectorOfAUtilityAsItIs)
{
    writeProgram(utility, "#!/bin/sh\necho \"$*|$#\" > " + out + "\n");
    char const* const args[] = {"its name", "one", "two", nullptr};
    auto const run = tidyRun([&] { print(util_exec_args(name.c_str(), args)); });
    EXPECT_EQ(readFile(out), "one two|2\n");
    EXPECT_EQ(run.out, "[0]");
    EXPECT_EQ(run.status, 0);
}
