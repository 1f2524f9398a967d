#include "postfix/master_cf/master_cf_parser.h"

#include <gtest/gtest.h>

#include <string>
#include <string_view>
#include <vector>

using namespace orvek::mail::postfix;

namespace {

using Lines = MasterCfContent::Lines;

constexpr char smtp[] = "smtp inet n - n - - smtpd";

// The text has its own block of memory, so that a read past its end is noticed.
bool parse(MasterCfContent& content, std::string_view text)
{
    std::vector<char> const block(text.begin(), text.end());
    return MasterCfParser(content).parse(block.data(), block.data() + block.size());
}

bool accepts(std::string_view text)
{
    MasterCfContent content;
    return parse(content, text);
}

Lines linesOf(std::string_view text)
{
    MasterCfContent content;
    EXPECT_TRUE(parse(content, text)) << text;
    return content.lines;
}

// The text that is written back: each element with a line feed.
std::string stored(MasterCfContent const& content)
{
    std::string text;
    for (std::string const& line : content.lines)
        text.append(line).append("\n");
    return text;
}

// The record of the service "smtp" of type inet in a file of this text.
ModuleInfo smtpOf(std::string_view text)
{
    MasterCfContent content;
    EXPECT_TRUE(parse(content, text)) << text;
    return content.modules.at({"smtp", ModuleType::inet});
}

} // namespace

TEST(MasterCfParser, AcceptsAFileOfNothing)
{
    EXPECT_EQ(linesOf(""), Lines{""});
}

TEST(MasterCfParser, TakesEveryEmptyLineForAnElement)
{
    EXPECT_EQ(linesOf("\n"), (Lines{"", ""}));
    EXPECT_EQ(linesOf("\n\n \t\r\n"), (Lines{"", "", " \t\r", ""}));
}

TEST(MasterCfParser, KeepsCommentsWithTheirBlanksAndReturns)
{
    EXPECT_EQ(linesOf("# a\n  #b\r\n#\n# c"), (Lines{"# a", "  #b\r", "#", "# c"}));
    EXPECT_EQ(linesOf(std::string_view("# \0\x01\xff", 5)), Lines{std::string("# \0\x01\xff", 5)});
}

TEST(MasterCfParser, ReadsEachColumn)
{
    ModuleInfo const info = smtpOf("smtp inet n y y 60? 5 smtpd -v");
    EXPECT_EQ(info.name, "smtp");
    EXPECT_EQ(info.type, ModuleType::inet);
    EXPECT_TRUE(bool(!info.privateService));
    EXPECT_TRUE(bool(info.unprivileged));
    EXPECT_TRUE(bool(info.chroot));
    EXPECT_EQ(info.wakeupTime, 60);
    EXPECT_TRUE(info.wakeupIfUsed);
    EXPECT_EQ(info.maxProcesses, 5);
    EXPECT_EQ(info.command, (CommandWords{"smtpd", "-v"}));
}

TEST(MasterCfParser, StoresNothingForAMinus)
{
    ModuleInfo const info = smtpOf("smtp inet - - - - - smtpd");
    EXPECT_TRUE(boost::indeterminate(info.privateService));
    EXPECT_TRUE(boost::indeterminate(info.unprivileged));
    EXPECT_TRUE(bool(!info.chroot));
    EXPECT_EQ(info.wakeupTime, -1);
    EXPECT_FALSE(info.wakeupIfUsed);
    EXPECT_EQ(info.maxProcesses, -1);
}

TEST(MasterCfParser, ReadsEachType)
{
    MasterCfContent content;
    EXPECT_TRUE(parse(content, "a inet - - - - - c\na unix - - - - - c\na fifo - - - - - c\n"
                               "a unix-dgram - - - - - c\na pass - - - - - c"));
    EXPECT_TRUE(content.hasModule("a", ModuleType::inet));
    EXPECT_TRUE(content.hasModule("a", ModuleType::unix));
    EXPECT_TRUE(content.hasModule("a", ModuleType::fifo));
    EXPECT_TRUE(content.hasModule("a", ModuleType::unix_dgram));
    EXPECT_TRUE(content.hasModule("a", ModuleType::pass));
}

TEST(MasterCfParser, TakesAMinusAfterUnixForTheNextColumn)
{
    EXPECT_TRUE(accepts("a unix-y- - - c"));
}

TEST(MasterCfParser, RejectsOtherTypes)
{
    EXPECT_FALSE(accepts("smtp tcp n - n - - smtpd"));
    EXPECT_FALSE(accepts("smtp INET n - n - - smtpd"));
    EXPECT_FALSE(accepts("smtp ine"));
    EXPECT_FALSE(accepts("postlog unix-stream n - n - 1 postlogd"));
}

TEST(MasterCfParser, AcceptsTheBytesOfANameAndNoOther)
{
    for (int byte = 0; byte < 256; ++byte) {
        char const c = static_cast<char>(byte);
        std::string const text = std::string("a") + c + "a inet n - n - - smtpd";
        bool const in_name = (c >= 'a' && c <= 'z') || (c >= '0' && c <= '9') || c == '-' ||
                             c == '_' || c == ':' || c == '.';
        EXPECT_EQ(accepts(text), in_name) << byte;
    }
    EXPECT_FALSE(accepts("Smtp inet n - n - - smtpd"));
    EXPECT_TRUE(accepts("127.0.0.1:10025 inet n - n - - smtpd"));
    EXPECT_TRUE(accepts("- inet n - n - - smtpd"));
}

TEST(MasterCfParser, RejectsOtherAnswersInEachOfTheThreeColumns)
{
    for (char const* const bad : {"yes", "x", "Y", "0", "ny", ""}) {
        EXPECT_FALSE(accepts("smtp inet " + std::string(bad) + " n n - - smtpd")) << bad;
        EXPECT_FALSE(accepts("smtp inet n " + std::string(bad) + " n - - smtpd")) << bad;
        EXPECT_FALSE(accepts("smtp inet n n " + std::string(bad) + " - - smtpd")) << bad;
    }
}

TEST(MasterCfParser, ReadsNumbersUpTo32Bits)
{
    EXPECT_EQ(smtpOf("smtp inet - - - 2147483647 0 smtpd").wakeupTime, 2147483647);
    EXPECT_EQ(smtpOf("smtp inet - - - 2147483648 0 smtpd").wakeupTime, -2147483647 - 1);
    EXPECT_EQ(smtpOf("smtp inet - - - 4294967295 0 smtpd").wakeupTime, -1);
    EXPECT_EQ(smtpOf("smtp inet - - - - 4294967295 smtpd").maxProcesses, -1);
    EXPECT_EQ(smtpOf("smtp inet - - - 000000000000000060 0 smtpd").wakeupTime, 60);
    EXPECT_EQ(smtpOf("smtp inet - - - 0 7 smtpd").maxProcesses, 7);
}

TEST(MasterCfParser, RejectsNumbersThatDoNotFit)
{
    EXPECT_FALSE(accepts("smtp inet - - - 4294967296 - smtpd"));
    EXPECT_FALSE(accepts("smtp inet - - - - 4294967296 smtpd"));
    EXPECT_FALSE(accepts("smtp inet - - - 99999999999999999999999 - smtpd"));
}

TEST(MasterCfParser, RejectsWhatIsNoNumber)
{
    for (char const* const bad : {"x", "+1", "-x", "0x1", "60?? ", "?", "-?", "60 ?"}) {
        EXPECT_FALSE(accepts("smtp inet - - - " + std::string(bad) + " - smtpd")) << bad;
    }
    EXPECT_FALSE(accepts("smtp inet - - - - +1 smtpd"));
}

TEST(MasterCfParser, TakesTheMarkOfAWakeupOnly)
{
    EXPECT_TRUE(smtpOf("smtp inet - - - 60? - smtpd").wakeupIfUsed);
    EXPECT_FALSE(smtpOf("smtp inet - - - 60 - smtpd").wakeupIfUsed);
    // after the process limit "?" is a word of the command
    EXPECT_EQ(smtpOf("smtp inet - - - - 5? smtpd").command, (CommandWords{"?", "smtpd"}));
}

TEST(MasterCfParser, ReadsColumnsThatTouch)
{
    ModuleInfo const info = smtpOf("smtp inety-n-5smtpd");
    EXPECT_TRUE(bool(info.privateService));
    EXPECT_TRUE(boost::indeterminate(info.unprivileged));
    EXPECT_TRUE(bool(!info.chroot));
    EXPECT_EQ(info.wakeupTime, -1);
    EXPECT_EQ(info.maxProcesses, 5);
    EXPECT_EQ(info.command, CommandWords{"smtpd"});
    EXPECT_EQ(smtpOf("smtp inet - - - -1 smtpd").maxProcesses, 1);
    EXPECT_FALSE(accepts("smtpinet y - n - 5 smtpd"));
}

TEST(MasterCfParser, RejectsFewerThanEightColumns)
{
    std::string const text = "smtp inet n - n - - s";
    for (size_t length = 1; length < text.size(); ++length)
        EXPECT_FALSE(accepts(text.substr(0, length))) << text.substr(0, length);
    EXPECT_TRUE(accepts(text));
}

TEST(MasterCfParser, AcceptsPrintableASCIIButNoNumberSignInWords)
{
    for (int byte = 0; byte < 256; ++byte) {
        char const c = static_cast<char>(byte);
        MasterCfContent content;
        bool const accepted = parse(content, std::string("a inet - - - - - x") + c + "y");
        bool const blank = c == ' ' || c == '\t' || c == '\r';
        bool const in_word = byte > 32 && byte < 127 && c != '#';
        ASSERT_EQ(accepted, in_word || blank) << byte;
        if (in_word) {
            EXPECT_EQ(content.modules.begin()->second.command,
                      CommandWords{std::string("x") + c + "y"});
        }
    }
}

TEST(MasterCfParser, TakesTheTextFromTheNameToTheLastBlank)
{
    EXPECT_EQ(linesOf("smtp  inet\tn - n - - smtpd  \t\r\n# c"),
              (Lines{"smtp  inet\tn - n - - smtpd  \t\r", "# c"}));
}

TEST(MasterCfParser, TakesContinuationLinesIntoTheEntry)
{
    std::string const text = std::string(smtp) + "\n  -o a=b\n\t-o c=d ";
    EXPECT_EQ(linesOf(text), Lines{text});
    EXPECT_EQ(smtpOf(text).command, (CommandWords{"smtpd", "-o", "a=b", "-o", "c=d"}));
    EXPECT_EQ(linesOf(text + "\n" + "x inet n - n - - y"), (Lines{text, "x inet n - n - - y"}));
}

TEST(MasterCfParser, SpreadsColumnsOverLines)
{
    std::string const text = "smtp # the name\n inet\n\n#c\n n - n\r\n - -\n smtpd";
    EXPECT_EQ(linesOf(text), Lines{text});
    EXPECT_EQ(smtpOf(text).command, CommandWords{"smtpd"});
}

TEST(MasterCfParser, SwallowsCommentAndEmptyLinesInFrontOfAContinuation)
{
    std::string const text = std::string(smtp) + " # c\n#d\n\n \n  # e\n -o a=b";
    EXPECT_EQ(linesOf(text), Lines{text});
}

TEST(MasterCfParser, LeavesCommentsAndEmptyLinesBeforeAnythingAlone)
{
    std::string const s = smtp;
    EXPECT_EQ(linesOf(s + "\n#d\n\n \n  # e\nx inet n - n - - y"),
              (Lines{s, "#d", "", " ", "  # e", "x inet n - n - - y"}));
    EXPECT_EQ(linesOf(s + "\n  # e\n  "), (Lines{s, "  # e", "  "}));
    EXPECT_EQ(linesOf(s + "\n  # e"), (Lines{s, "  # e"}));
}

TEST(MasterCfParser, RejectsACommentAfterTheLastWord)
{
    std::string const s = smtp;
    EXPECT_FALSE(accepts(s + " # c"));
    EXPECT_FALSE(accepts(s + "#c"));
    EXPECT_FALSE(accepts(s + " # c\n"));
    EXPECT_FALSE(accepts(s + " # c\n#d\nx inet n - n - - y"));
    EXPECT_FALSE(accepts(s + " # c\n  # d\n"));
    EXPECT_TRUE(accepts(s + " # c\n -v"));
    EXPECT_TRUE(accepts(s + "#c\n -v"));
}

TEST(MasterCfParser, RejectsAnIndentedLineWithoutAServiceBefore)
{
    EXPECT_FALSE(accepts(" -o a=b"));
    EXPECT_FALSE(accepts("# c\n smtp inet n - n - - smtpd"));
    EXPECT_FALSE(accepts("\n\t-o a=b\n"));
}

TEST(MasterCfParser, RejectsAFileWithOneBadLineAnywhere)
{
    std::string const s = smtp;
    EXPECT_FALSE(accepts("bad\n" + s));
    EXPECT_FALSE(accepts(s + "\nbad\n" + s));
    EXPECT_FALSE(accepts(s + "\n!"));
    EXPECT_FALSE(accepts(std::string_view("\0", 1)));
}

TEST(MasterCfParser, KeepsEarlierValuesWhereALaterEntryHasMinus)
{
    MasterCfContent content;
    ASSERT_TRUE(parse(content, "a inet y n y 60? 5 x\nb inet - - - - - y\nc unix n y n 7 - z"));
    ModuleInfo const& b = content.modules.at({"b", ModuleType::inet});
    EXPECT_TRUE(bool(b.privateService));
    EXPECT_TRUE(bool(!b.unprivileged));
    EXPECT_TRUE(bool(b.chroot));
    EXPECT_EQ(b.wakeupTime, 60);
    EXPECT_TRUE(b.wakeupIfUsed);
    EXPECT_EQ(b.maxProcesses, 5);
    ModuleInfo const& c = content.modules.at({"c", ModuleType::unix});
    EXPECT_TRUE(bool(!c.privateService));
    EXPECT_TRUE(bool(c.unprivileged));
    EXPECT_TRUE(bool(!c.chroot));
    EXPECT_EQ(c.wakeupTime, 7);
    EXPECT_TRUE(c.wakeupIfUsed);
    EXPECT_EQ(c.maxProcesses, 5);
}

TEST(MasterCfParser, GathersTheWordsOfAllEntriesSoFar)
{
    MasterCfContent content;
    ASSERT_TRUE(parse(content, "a inet - - - - - x -v\nb inet - - - - - y"));
    EXPECT_EQ(content.modules.at({"a", ModuleType::inet}).command, (CommandWords{"x", "-v"}));
    EXPECT_EQ(content.modules.at({"b", ModuleType::inet}).command, (CommandWords{"x", "-v", "y"}));
}

TEST(MasterCfParser, BeginsANewFileCleared)
{
    MasterCfContent first;
    ASSERT_TRUE(parse(first, "a inet y n y 60? 5 x"));
    EXPECT_EQ(smtpOf(smtp).command, CommandWords{"smtpd"});
    EXPECT_FALSE(smtpOf(smtp).wakeupIfUsed);
}

TEST(MasterCfParser, ReplacesAServicesFirstEntryByItsSecond)
{
    EXPECT_EQ(linesOf("a inet - - - - - x\n# c\na inet - - - - - y\n# d"),
              (Lines{"a inet - - - - - y", "# c", "# d"}));
    EXPECT_EQ(smtpOf("smtp inet n - - 5 - x\nsmtp inet y - - 7 - y").wakeupTime, 7);
}

TEST(MasterCfParser, GrowsAFileByOneEmptyLineEachTime)
{
    std::string text = "# c\n\nsmtp inet n - n - - smtpd \r\n  -o a=b\n";
    for (int cycle = 1; cycle <= 3; ++cycle) {
        MasterCfContent content;
        ASSERT_TRUE(parse(content, text));
        EXPECT_EQ(stored(content), text + "\n");
        text = stored(content);
    }
}

TEST(MasterCfParser, GivesAFileItsMissingLastLineFeed)
{
    MasterCfContent content;
    ASSERT_TRUE(parse(content, smtp));
    EXPECT_EQ(stored(content), std::string(smtp) + "\n");
}

TEST(MasterCfParser, HoldsTheWordsOfAllServicesOnce)
{
    MasterCfContent content;
    ASSERT_TRUE(parse(content, "a inet - - - - - x -v\nb inet - - - - - y"));
    auto const& words = content.modules.at({"a", ModuleType::inet}).command;
    auto const& more_words = content.modules.at({"b", ModuleType::inet}).command;
    EXPECT_EQ(&*words.begin(), &*more_words.begin());
}
