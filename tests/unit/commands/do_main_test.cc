#include "commands/do_main.h"

#include "command_line.h"
#include "commands/command_table.h"
#include "lib/report/visible.h"
#include "mail/lib/accounts/mail_auth_style.h"
#include "support/child_run.h"

#include <gtest/gtest.h>

using namespace orvek::mail::postfix::mailvek_commands;

namespace {

// While set, this is the handler of --features in this program.
CommandHandler handler = nullptr;

ChildRun tool(std::initializer_list<std::string> words)
{
    return inChild([&] {
        CommandLine line(words);
        return do_main(line.argc(), line.argv());
    });
}

std::string shortUsage()
{
    return tool({"mailvek", "-h"}).out;
}

void expectUnknown(std::string const& command)
{
    auto const run = tool({"mailvek", command, "--help"});
    EXPECT_EQ(run.status, 1);
    EXPECT_EQ(run.signal, 0);
    EXPECT_EQ(run.err, "Error: invalid command " + visible(command) + "\n" + shortUsage());
    EXPECT_EQ(run.out, "");
}

ChildRun features(CommandHandler stands_in)
{
    return inChild([&] {
        handler = stands_in;
        CommandLine line({"mailvek", "--features", "--help"});
        return do_main(line.argc(), line.argv());
    });
}

} // namespace

// The linker replaces f by __wrap_f; the original is __real_f.
extern "C" {

int __real__ZN5orvek4mail7postfix16mailvek_commands13printFeaturesEiPPc(int argc, char** argv);

int __wrap__ZN5orvek4mail7postfix16mailvek_commands13printFeaturesEiPPc(int argc, char** argv)
{
    auto const run =
        handler ? handler : __real__ZN5orvek4mail7postfix16mailvek_commands13printFeaturesEiPPc;
    return run(argc, argv);
}

} // extern "C"

TEST(DoMain, WithoutACommandSaysSoOnStandardErrorAlone)
{
    auto const run = tool({"mailvek"});
    EXPECT_EQ(run.status, 1);
    EXPECT_EQ(run.err, "Error: no command specified\n" + shortUsage());
    EXPECT_EQ(run.out, "");
}

TEST(DoMain, WithoutAnyArgumentsAtAllSaysTheSame)
{
    EXPECT_EQ(tool({}).err, "Error: no command specified\n" + shortUsage());
}

TEST(DoMain, NamesAnUnknownCommandOnStandardErrorAlone)
{
    expectUnknown("foo");
}

TEST(DoMain, TakesAnEmptyFirstArgumentForAnUnknownCommand)
{
    expectUnknown("");
}

TEST(DoMain, MatchesNamesExactlyAndCaseSensitively)
{
    expectUnknown("--Features");
    expectUnknown("--feature");
    expectUnknown("--features ");
    expectUnknown("--features=");
}

TEST(DoMain, TakesInvalidUtf8AndNewlinesForUnknownCommands)
{
    expectUnknown("\xff\xfe\x80");
    expectUnknown("--features\n--help");
    expectUnknown("%s%n%p");
}

TEST(DoMain, EndsInTheSameErrorForAVeryLongArgument)
{
    expectUnknown(std::string(100000, 'a'));
}

TEST(DoMain, LooksAtTheFirstArgumentOnly)
{
    auto const run = tool({"mailvek", "foo", "--features"});
    EXPECT_EQ(run.status, 1);
    EXPECT_EQ(run.out, "");
}

TEST(DoMain, RunsOneHandlerForTheLongAndTheShortName)
{
    EXPECT_EQ(tool({"mailvek", "--help"}).out, tool({"mailvek", "-h"}).out);
    EXPECT_EQ(tool({"mailvek", "--help"}).status, 0);
    EXPECT_EQ(tool({"mailvek", "--help"}).err, "");
}

TEST(DoMain, RunsTheThreeHelpCommandsWhateverStandsBehindThem)
{
    for (auto const* const command : {"--help", "-h", "--help-commands", "--help-legacy"}) {
        auto const plain = tool({"mailvek", command});
        auto const followed = tool({"mailvek", command, "--bogus", "\xff"});
        EXPECT_EQ(plain.status, 0);
        EXPECT_EQ(followed.status, 0);
        EXPECT_NE(plain.out, "");
        EXPECT_EQ(plain.out, followed.out);
        EXPECT_EQ(plain.err, "");
    }
}

TEST(DoMain, PointsAccountsAtThePostfixDatabaseBeforeTheHandler)
{
    auto const run = features([](int, char**) {
        return std::string(mailAuthDB) == "/var/spool/postfix/orvek/passwd.db" ? 0 : 1;
    });
    EXPECT_EQ(run.status, 0);
}

TEST(DoMain, GivesTheHandlerTheCommandsNameAsArgumentZero)
{
    auto const run = features([](int argc, char** argv) {
        for (int i = 0; i < argc; ++i)
            std::cout << argv[i] << ';';
        return argv[argc] ? 1 : 0;
    });
    EXPECT_EQ(run.status, 0);
    EXPECT_EQ(run.out, "--features;--help;");
}

TEST(DoMain, ReturnsWhatTheHandlerReturns)
{
    EXPECT_EQ(features([](int, char**) { return 7; }).status, 7);
    EXPECT_EQ(features([](int, char**) { return -1; }).status, 255);
}

TEST(DoMain, LetsWhatTheHandlerRaisesPass)
{
    auto const run = inChild([] {
        handler = [](int, char**) -> int { throw 5; };
        CommandLine line({"mailvek", "--features"});
        try {
            return do_main(line.argc(), line.argv());
        } catch (int raised) {
            return raised;
        }
    });
    EXPECT_EQ(run.status, 5);
}

TEST(CommandMap, HasEachRowsHandlerUnderAllItsNames)
{
    auto const map = commandMap();
    size_t names = 0;
    for (auto const& row : commandTable()) {
        EXPECT_EQ(map.at(std::string(row.longName())), row.handler) << row.name;
        ++names;
        if (row.shortName().empty())
            continue;
        EXPECT_EQ(map.at(std::string(row.shortName())), row.handler) << row.name;
        ++names;
    }
    EXPECT_EQ(map.size(), names);
}

TEST(CommandMap, HasHandlersOfOtherNamesForThese)
{
    auto const map = commandMap();
    EXPECT_EQ(map.at("--set-autoresponder"), addAutoresponder);
    EXPECT_EQ(map.at("--reset-autoresponder"), removeAutoresponder);
    EXPECT_EQ(map.at("--unset-reject"), removeReject);
    EXPECT_EQ(map.at("--turn-on-domain"), enableDomain);
    EXPECT_EQ(map.at("--turn-off-domain"), disableDomain);
    EXPECT_EQ(map.at("--del-domain-alias"), removeDomainAlias);
    EXPECT_EQ(map.at("--status-smtpd"), statusMTA);
    EXPECT_EQ(map.at("--start-qmail-send"), startMTA);
    EXPECT_EQ(map.at("--start-maild"), startIMAP);
    EXPECT_EQ(map.at("--enable-message-submission"), enableSubmission);
}

TEST(CommandMap, HasTheShortFormsThatThePanelKnows)
{
    auto const map = commandMap();
    for (auto const* const letter :
         {"-p", "-o", "-r", "-s", "-l", "-m", "-i", "-t", "-z", "-e", "-a", "-b", "-h"})
        EXPECT_TRUE(map.contains(letter)) << letter;
}
