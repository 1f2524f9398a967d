#include "commands/usage.h"

#include "commands/command_table.h"
#include "support/child_run.h"

#include <gtest/gtest.h>

using namespace orvek::mail::postfix::mailvek_commands;

namespace {

char const short_usage[] =
    "Usage: mailvek <COMMAND> <COMMAND OPTIONS...>\n"
    "\t for a complete list of commands use ``mailvek --help-commands''\n"
    "\t for help on syntax for a particular command use ``mailvek <COMMAND> --help''\n"
    "\t for legacy complete help use ``mailvek --help-legacy''\n";

bool holds(std::string const& text, std::string const& part)
{
    return text.find(part) != std::string::npos;
}

} // namespace

TEST(Usage, ShortPrintsFourLinesAndGivesTheGivenStatus)
{
    auto const run = inChild([]() -> int { usageShort(5, std::cerr); });
    EXPECT_EQ(run.status, 5);
    EXPECT_EQ(run.err, short_usage);
    EXPECT_EQ(run.out, "");
}

TEST(Usage, CommandsPadsNamesTwoBeyondTheLongest)
{
    auto const run = inChild([]() -> int { usageCommands(0, std::cout); });
    EXPECT_EQ(run.status, 0);
    EXPECT_EQ(
        run.out.find("Mailvek commands:\n"
                     "--add-mailname                    adds mailname to the mail domain. "
                     "Optionally sets the mailbox quota\n"
                     "--remove-mailname                 removes mailname to the mail domain\n"),
        0U);
    EXPECT_TRUE(holds(run.out, "\n-b, --disable-message-submission  disables"));
    EXPECT_TRUE(holds(run.out, "\n-h, --help                        displays mailvek usage summary "
                               "and exit\n"));
    EXPECT_FALSE(holds(run.out, "--domain-name"));
}

TEST(Usage, CommandsPrintsTheHeaderAndEachRowsLines)
{
    auto const run = inChild([]() -> int { usageCommands(0, std::cout); });
    size_t breaks = 0;
    size_t rows = 0;
    for (size_t at = run.out.find('\n'); at != std::string::npos; at = run.out.find('\n', at + 1))
        ++(holds(run.out.substr(at, 9), "\n        ") ? breaks : rows);
    EXPECT_EQ(rows, 1U + commandTable().size());
    EXPECT_EQ(breaks, 7U);
}

TEST(Usage, LegacyShowsArgumentsAndDescriptionOfEachRow)
{
    auto const run = inChild([]() -> int { usageLegacy(0, std::cout); });
    EXPECT_EQ(run.out.find("Usage: mailvek [OPTIONS]... \n"
                           "  --add-mailname --domain-name=<domain_name> --mailname=<mail_name> "
                           "[--disk-quota=<quota>]\n"
                           "        adds mailname to the mail domain. Optionally sets the mailbox "
                           "quota\n"),
              0U);
    EXPECT_TRUE(holds(run.out,
                      "  --features \n"
                      "        returns PHP code which reflects state of several features support "
                      "in mailvek.\n"
                      "        Currently they are auth-type and format\n"));
    EXPECT_TRUE(holds(run.out,
                      "  --set-accounts-format --account-format=(\"compound\" | \"both\")\n"
                      "        sets the POP3/IMAP accounts format\n"));
    EXPECT_TRUE(holds(run.out, "  -a, --enable-message-submission \n"
                               "        enables message submission (obsoleted, use --start-service "
                               "--mail-component=submission\n"));
}

TEST(Usage, ListsGoToTheGivenStreamWithTheGivenStatus)
{
    auto const commands = inChild([]() -> int { usageCommands(5, std::cerr); });
    EXPECT_EQ(commands.status, 5);
    EXPECT_EQ(commands.out, "");
    EXPECT_EQ(commands.err, inChild([]() -> int { usageCommands(0, std::cout); }).out);
    EXPECT_NE(commands.err, "");

    auto const legacy = inChild([]() -> int { usageLegacy(6, std::cerr); });
    EXPECT_EQ(legacy.status, 6);
    EXPECT_EQ(legacy.out, "");
    EXPECT_EQ(legacy.err, inChild([]() -> int { usageLegacy(0, std::cout); }).out);
    EXPECT_NE(legacy.err, "");
}

TEST(WrongUsage, PrintsMessageAndShortUsageOnStandardErrorAlone)
{
    auto const run = inChild([]() -> int { wrongUsage("no command specified"); });
    EXPECT_EQ(run.status, 1);
    EXPECT_EQ(run.err, std::string("Error: no command specified\n") + short_usage);
    EXPECT_EQ(run.out, "");
}

TEST(WrongUsage, PrintsTheShortUsageAloneForAnEmptyMessage)
{
    auto const run = inChild([]() -> int { wrongUsage(""); });
    EXPECT_EQ(run.status, 1);
    EXPECT_EQ(run.err, short_usage);
}
