#include "mail/lib/server/courier_lines.h"

#include "lib/report/owned.h"
#include "support/child_run.h"
#include "support/pauses.h"

#include <gtest/gtest.h>

#include <cerrno>
#include <string>
#include <vector>

namespace {

constexpr EnvChange end_of_list = {nullptr, ENV_ADD, nullptr};

// The text after the changes.
std::string changed(std::string const& text, std::vector<EnvChange> env)
{
    env.push_back(end_of_list);
    OpenFile const from(tmpfile());
    OpenFile const to(tmpfile());
    fwrite(text.data(), 1, text.size(), from.get());
    rewind(from.get());
    copy_changed_lines(from.get(), to.get(), env.data());
    EXPECT_TRUE(feof(from.get()));
    EXPECT_FALSE(ferror(to.get()));
    return child_run_detail::contents(to.get());
}

} // namespace

TEST(CopyChangedLines, KeepsAllForAnEmptyList)
{
    for (char const* const text : {"", "\n", "A=1\n", "# comment\n\n B=2\n", "%s %n 100%\n"})
        EXPECT_EQ(changed(text, {}), text);
}

TEST(CopyChangedLines, KeepsEveryByteOfALine)
{
    std::string const bytes("a\0b\r\xff\x01\n\0\n", 9);
    EXPECT_EQ(changed(bytes, {{"X", ENV_DEL, nullptr}}), bytes);
    std::string const overlong = std::string(300000, 'x') + "\n";
    EXPECT_EQ(changed(overlong, {{"X", ENV_DEL, nullptr}}), overlong);
}

TEST(CopyChangedLines, SetsAVariableInItsPlace)
{
    EXPECT_EQ(changed("A=1\nB=2\nC=3\n", {{"B", ENV_ADD, "new value"}}), "A=1\nB=new value\nC=3\n");
}

TEST(CopyChangedLines, SetsAVariableOnceAtItsFirstLine)
{
    EXPECT_EQ(changed("B=1\nA=1\nB=2\nB=\n", {{"B", ENV_ADD, "9"}}), "B=9\nA=1\n");
}

TEST(CopyChangedLines, AppendsWhatIsNotThereInTheListsOrder)
{
    EXPECT_EQ(changed("C=1\n", {{"B", ENV_ADD, "2"}, {"C", ENV_ADD, "3"}, {"A", ENV_ADD, "4"}}),
              "C=3\nB=2\nA=4\n");
    EXPECT_EQ(changed("", {{"B", ENV_ADD, "2"}}), "B=2\n");
}

TEST(CopyChangedLines, WritesANullAsTheEmptyValue)
{
    EXPECT_EQ(changed("A=1\n", {{"A", ENV_ADD, nullptr}, {"B", ENV_ADD, nullptr}}), "A=\nB=\n");
}

TEST(CopyChangedLines, RemovesEveryLineOfAVariable)
{
    EXPECT_EQ(changed("A=1\nB=2\nA=3\n", {{"A", ENV_DEL, "1"}}), "B=2\n");
    EXPECT_EQ(changed("B=2\n", {{"A", ENV_DEL, "1"}}), "B=2\n");
}

TEST(CopyChangedLines, KnowsAVariableByLeadingNameAndEqualsSign)
{
    std::string const text = "#A=1\n A=1\nexport A=1\nA =1\nAB=1\nA\nA_B=1\na=1\nBA=1\n";
    EXPECT_EQ(changed(text, {{"A", ENV_DEL, nullptr}}), text);
    EXPECT_EQ(changed(text, {{"A", ENV_ADD, "2"}}), text + "A=2\n");
    EXPECT_EQ(changed("POPLOCK_TIME=5\n", {{"POPLOCK", ENV_DEL, nullptr}}), "POPLOCK_TIME=5\n");
}

TEST(CopyChangedLines, LetsTheFirstMatchingChangeDecide)
{
    EXPECT_EQ(changed("A=1\nA=2\n", {{"A", ENV_DEL, nullptr}, {"A", ENV_ADD, "3"}}), "A=3\n");
    EXPECT_EQ(changed("A=1\nA=2\n", {{"A", ENV_ADD, "3"}, {"A", ENV_DEL, nullptr}}), "A=3\n");
}

TEST(CopyChangedLines, EndsALastLineThatHasNoNewline)
{
    EXPECT_EQ(changed("A=1\nB=2", {}), "A=1\nB=2\n");
    EXPECT_EQ(changed("A=1", {{"B", ENV_ADD, "2"}}), "A=1\nB=2\n");
}

TEST(CopyChangedLines, WritesThatNewlineAfterAReplacedOrDroppedLineToo)
{
    EXPECT_EQ(changed("A=1\nB=2", {{"B", ENV_ADD, "3"}}), "A=1\nB=3\n\n");
    EXPECT_EQ(changed("A=1\nB=2", {{"B", ENV_DEL, "3"}}), "A=1\n\n");
}

TEST(CopyChangedLines, TakesThirtyOneChanges)
{
    std::vector<std::string> names;
    for (int i = 0; i < 32; ++i)
        names.push_back("V" + std::to_string(i));
    std::vector<EnvChange> env;
    std::string expected;
    for (int i = 0; i < 31; ++i) {
        env.push_back({names[i].c_str(), ENV_ADD, "x"});
        expected += names[i] + "=x\n";
    }
    ChildRun const run = printedBy([&] {
        EXPECT_EQ(changed("A=1\nV30=1\n", env),
                  "A=1\nV30=x\n" + expected.substr(0, expected.find("V30")));
    });
    EXPECT_EQ(run.err + run.out, "");

    // The 32nd change is ignored, and each line that reaches it reports that.
    env.push_back({names[31].c_str(), ENV_ADD, "x"});
    ChildRun const reported = printedBy([&] {
        EXPECT_EQ(changed("V31=1\nV0=2\nA=1\n", env),
                  "V31=1\nV0=x\nA=1\n" + expected.substr(expected.find("V1=")));
    });
    EXPECT_EQ(reported.err, "Too many variables specified, tail is ignored\n"
                            "Too many variables specified, tail is ignored\n");
    EXPECT_EQ(reported.out, reported.err);
}

TEST(CopyChangedLines, LeavesWhatCannotBeReadOrWrittenToTheCaller)
{
    OpenFile const directory(fopen("/", "r"));
    OpenFile const to(tmpfile());
    errno = 0;
    copy_changed_lines(directory.get(), to.get(), &end_of_list);
    EXPECT_FALSE(feof(directory.get()));
    EXPECT_EQ(errno, EISDIR);

    OpenFile const from(tmpfile());
    fprintf(from.get(), "%70000d\n%70000d\n", 1, 1);
    rewind(from.get());
    OpenFile const full(fopen("/dev/full", "w"));
    errno = 0;
    copy_changed_lines(from.get(), full.get(), &end_of_list);
    EXPECT_TRUE(ferror(full.get()));
    EXPECT_EQ(errno, ENOSPC);
}
