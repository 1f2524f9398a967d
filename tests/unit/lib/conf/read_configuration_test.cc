#include "lib/conf/read_configuration.h"

#include "lib/report/product_log.h"
#include "support/child_run.h"
#include "support/fd_census.h"
#include "support/memory_faults.h"
#include "support/temp_dir.h"
#include "unit/lib/conf/conf_of.h"

#include <gtest/gtest.h>

#include <cerrno>
#include <cstdio>
#include <cstring>
#include <deque>
#include <optional>

namespace {

std::optional<std::string> valueIn(std::string const& text)
{
    return lookup(confOf(text), "NAME");
}

// The reports from reading a file with this text, with a logger that prints every level.
ChildRun reportsOn(std::string const& text)
{
    return printedBy([&] {
        LogLevel = 12;
        confOf(text);
    });
}

// The pieces read from the file of this name. An empty piece is a failing read.
constexpr char read_in_pieces[] = "/read/in/pieces";
std::deque<std::string> pieces;

ssize_t readPiece(void*, char* block, size_t size)
{
    if (pieces.empty())
        return 0;
    std::string const piece = pieces.front().substr(0, size);
    pieces.pop_front();
    piece.copy(block, piece.size());
    errno = EIO;
    return piece.empty() ? -1 : static_cast<ssize_t>(piece.size());
}

// Fills a configuration with K0, K1, ... and their numbers, in an order that is not sorted.
std::string variables(int count)
{
    std::string text;
    for (int i = count - 1; i >= 0; --i)
        text += "K" + std::to_string(i) + " " + std::to_string(i) + "\n";
    return text;
}

} // namespace

extern "C" {

FILE* __real_fopen(char const* path, char const* mode);

FILE* __wrap_fopen(char const* path, char const* mode)
{
    if (strcmp(path, read_in_pieces) != 0)
        return __real_fopen(path, mode);
    return fopencookie(nullptr, "r", {readPiece, nullptr, nullptr, nullptr});
}

} // extern "C"

TEST(ConfReadFile, TakesNameAndValueFromALine)
{
    EXPECT_EQ(valueIn("NAME /a/path\n"), "/a/path");
    EXPECT_EQ(valueIn("NAME\t\v\f /a/path\n"), "/a/path");
    EXPECT_EQ(valueIn(" \t NAME /a/path\n"), "/a/path");
}

TEST(ConfReadFile, AllowsDigitsAndUnderscoresInANameAtAnyPlace)
{
    Conf const conf = confOf("_1aZ_ one\n9 two\n");
    EXPECT_EQ(lookup(conf, "_1aZ_"), "one");
    EXPECT_EQ(lookup(conf, "9"), "two");
}

TEST(ConfReadFile, IgnoresBlankLinesAndCommentsInSilence)
{
    auto const run = reportsOn("\n   \n# NAME x\n  \t# NAME y\n#\n");
    EXPECT_EQ(run.err, "");
    EXPECT_EQ(run.out, "");
    EXPECT_EQ(confOf("\n   \n# NAME x\n  # NAME y")->nmemb, 0U);
}

TEST(ConfReadFile, KeepsBlanksInsideTheValue)
{
    EXPECT_EQ(valueIn("NAME a b  c\td\n"), "a b  c\td");
}

TEST(ConfReadFile, CutsANewlineDirectlyBehindTheValue)
{
    EXPECT_EQ(valueIn("NAME value\n"), "value");
}

TEST(ConfReadFile, CutsOneBlankBeforeAComment)
{
    EXPECT_EQ(valueIn("NAME value # comment\n"), "value");
    EXPECT_EQ(valueIn("NAME value # comment"), "value");
}

TEST(ConfReadFile, KeepsTwoBlanksBeforeAComment)
{
    EXPECT_EQ(valueIn("NAME value  # comment\n"), "value  ");
}

TEST(ConfReadFile, KeepsOneBlankAndTheNewline)
{
    EXPECT_EQ(valueIn("NAME value \n"), "value \n");
}

TEST(ConfReadFile, KeepsTwoBlanksWithoutTheNewline)
{
    EXPECT_EQ(valueIn("NAME value  \n"), "value  ");
}

TEST(ConfReadFile, EndsAValueAtTheEndOfTheFile)
{
    EXPECT_EQ(valueIn("NAME value"), "value");
}

TEST(ConfReadFile, LosesOneCharacterOfAnOddRunOfSpaceOnly)
{
    EXPECT_EQ(valueIn("NAME value   # comment"), "value  ");
    EXPECT_EQ(valueIn("NAME value    # comment"), "value    ");
    EXPECT_EQ(valueIn("NAME value \t\r\n"), "value \t\r\n");
    EXPECT_EQ(valueIn("NAME value "), "value");
    EXPECT_EQ(valueIn("NAME value  "), "value  ");
}

TEST(ConfReadFile, ForgetsAMarkAtTheNextCharacterOfTheValue)
{
    EXPECT_EQ(valueIn("NAME a b"), "a b");
    EXPECT_EQ(valueIn("NAME a b#"), "a b");
    EXPECT_EQ(valueIn("NAME a b \n"), "a b \n");
}

TEST(ConfReadFile, CutsTheValueAtAHashRightBehindIt)
{
    EXPECT_EQ(valueIn("NAME value#comment\n"), "value");
}

TEST(ConfReadFile, StoresAValueOfOneCharacter)
{
    EXPECT_EQ(valueIn("NAME v#comment\n"), "v");
    EXPECT_EQ(valueIn("NAME v"), "v");
    EXPECT_EQ(valueIn("NAME v\n"), "v");
}

TEST(ConfReadFile, TakesBytesAbove127AsPartOfTheValue)
{
    EXPECT_EQ(valueIn("NAME /b\xc3\xbc\xff\n"), "/b\xc3\xbc\xff");
}

TEST(ConfReadFile, ReportsALineWithoutSpaceAfterTheName)
{
    std::string const text = "NAME=x\nOTHER y\n";
    auto const run = reportsOn(text);
    EXPECT_EQ(run.err,
              "Invalid variable definition NAME=x\n\nExpected a space after variable name\n\n");
    EXPECT_EQ(run.out, run.err);
    Conf const conf = confOf(text);
    EXPECT_EQ(lookup(conf, "NAME"), std::nullopt);
    EXPECT_EQ(lookup(conf, "OTHER"), "y");
}

TEST(ConfReadFile, ReportsALineThatBeginsWithAnotherCharacter)
{
    EXPECT_EQ(reportsOn("  = x").err,
              "Invalid variable definition = x\nExpected a space after variable name\n\n");
    EXPECT_EQ(reportsOn("\xc3\xbc x").err,
              "Invalid variable definition \xc3\xbc x\nExpected a space after variable name\n\n");
}

TEST(ConfReadFile, ReportsANameAtTheEndOfTheFile)
{
    EXPECT_EQ(reportsOn("NAME").err,
              "Invalid variable definition NAME\nExpected a space after variable name\n\n");
}

TEST(ConfReadFile, ReportsALineWithoutAValueAndGoesOn)
{
    std::string const text = " NAME\nOTHER y\n";
    auto const run = reportsOn(text);
    EXPECT_EQ(run.err, "Invalid variable definition NAME\n\nExpected a value\n");
    EXPECT_EQ(run.out, run.err);
    EXPECT_EQ(confOf(text)->nmemb, 1U);
    EXPECT_EQ(reportsOn("NAME # comment").err,
              "Invalid variable definition NAME # comment\nExpected a value\n");
}

TEST(ConfReadFile, IsSilentAtTheDefaultLevelOfTheLogger)
{
    auto const run = printedBy([] {
        confOf("=\nNAME\n");
        conf_read_file_r("/nonexistent/conf", newConf().get());
    });
    EXPECT_EQ(run.err, "");
    EXPECT_EQ(run.out, "");
}

TEST(ConfReadFile, NeverTakesALineAsAFormat)
{
    EXPECT_EQ(reportsOn("%s%n").err,
              "Invalid variable definition %s%n\nExpected a space after variable name\n\n");
}

TEST(ConfReadFile, ReadsLinesOfAnyLength)
{
    std::string const value(100000, 'v');
    EXPECT_EQ(valueIn("NAME " + value + "\n"), value);
}

TEST(ConfReadFile, EndsALineAtANulCharacter)
{
    EXPECT_EQ(valueIn(std::string("NAME v\0w\n", 9)), "v");
}

TEST(ConfReadFile, LoadsAnEmptyFile)
{
    Conf const conf = confOf("");
    EXPECT_EQ(conf->nmemb, 0U);
    EXPECT_EQ(lookup(conf, "NAME"), std::nullopt);
    EXPECT_EQ(lookup(conf, ""), std::nullopt);
}

TEST(ConfReadFile, LetsTheLastDefinitionWin)
{
    Conf const conf = confOf("NAME one\nOTHER x\nNAME two\n");
    EXPECT_EQ(lookup(conf, "NAME"), "two");
    EXPECT_EQ(conf->nmemb, 2U);
}

TEST(ConfReadFile, SortsWhatItRead)
{
    Conf const conf = confOf("C 3\nA 1\nB 2\n");
    EXPECT_NE(conf->finalized, 0);
    ASSERT_EQ(conf->nmemb, 3U);
    EXPECT_STREQ(conf->data[0].key, "A");
    EXPECT_STREQ(conf->data[1].key, "B");
    EXPECT_STREQ(conf->data[2].key, "C");
}

TEST(ConfReadFile, FindsEveryVariableAfterTheArrayGrew)
{
    Conf const conf = confOf(variables(81));
    EXPECT_EQ(conf->nmemb, 81U);
    for (int i = 0; i < 81; ++i)
        EXPECT_EQ(lookup(conf, ("K" + std::to_string(i)).c_str()), std::to_string(i));
    EXPECT_EQ(lookup(conf, "K81"), std::nullopt);
}

TEST(ConfReadFile, AddsToWhatIsThere)
{
    TempDir const dir;
    writeFile(dir / "conf", "A new\nB 2\n");
    Conf const conf = confOf("A old\nZ 26\n");
    EXPECT_EQ(conf_read_file_r((dir / "conf").c_str(), conf.get()), 0);
    EXPECT_EQ(lookup(conf, "A"), "new");
    EXPECT_EQ(lookup(conf, "B"), "2");
    EXPECT_EQ(lookup(conf, "Z"), "26");
}

TEST(ConfReadFile, ReportsAFileThatCannotBeOpenedAndKeepsErrno)
{
    auto const run = inChild([] {
        LogLevel = 12;
        Conf const conf = newConf();
        int const result = conf_read_file_r("/nonexistent/conf", conf.get());
        return result == -1 && errno == ENOENT && conf->nmemb == 0 ? 0 : 1;
    });
    EXPECT_EQ(run.status, 0);
    EXPECT_EQ(run.err, "unable to open configuration file /nonexistent/conf: "
                       "No such file or directory\n\n");
    EXPECT_EQ(run.out, run.err);
}

TEST(ConfReadFile, ReportsAReadErrorAndKeepsErrnoAndEntries)
{
    auto const run = inChild([] {
        LogLevel = 12;
        Conf const conf = confOf("NAME value\n");
        int const result = conf_read_file_r("/", conf.get());
        return result == -1 && errno == EISDIR && lookup(conf, "NAME") == "value" ? 0 : 1;
    });
    EXPECT_EQ(run.status, 0);
    EXPECT_EQ(run.err, "Unable to read configuration file: Is a directory\n");
    EXPECT_EQ(run.out, run.err);
}

TEST(ConfReadFile, KeepsTheEntriesBeforeAReadError)
{
    std::deque<std::string> const ways[] = {{"NAME v\nOTHER w\n", ""}, {"NAME v\nOTHER w", ""}};
    for (auto const& way : ways) {
        auto const run = inChild([&] {
            LogLevel = 12;
            pieces = way;
            Conf const conf = newConf();
            int const result = conf_read_file_r(read_in_pieces, conf.get());
            return result == -1 && errno == EIO && lookup(conf, "NAME") == "v" &&
                           lookup(conf, "OTHER") == "w"
                       ? 0
                       : 1;
        });
        EXPECT_EQ(run.status, 0);
        EXPECT_EQ(run.err, "Unable to read configuration file: Input/output error\n");
    }
}

TEST(ConfReadFile, EndsAtAVariableThatCannotBeStored)
{
    TempDir const dir;
    writeFile(dir / "conf", "C 3\nA 1\nB 2\n");
    auto const run = inChild([&] {
        LogLevel = 12;
        auto const before = openDescriptors();
        Conf const conf = newConf();
        int result = 0;
        {
            AllocationFailure const failure(6); // the array, two strings for C and A, and then B
            result = conf_read_file_r((dir / "conf").c_str(), conf.get());
        }
        return result == -1 && errno == ENOMEM && conf->nmemb == 2 && !conf->finalized &&
                       lookup(conf, "A") == "1" && lookup(conf, "C") == "3" &&
                       openDescriptors() == before
                   ? 0
                   : 1;
    });
    EXPECT_EQ(run.status, 0);
    EXPECT_EQ(run.err, "Unable to form configuration: Cannot allocate memory\n");
}

TEST(ConfReadFile, LeavesNoDescriptorOpen)
{
    auto const before = openDescriptors();
    confOf("NAME value\n");
    conf_read_file_r("/", newConf().get());
    EXPECT_EQ(openDescriptors(), before);
}
