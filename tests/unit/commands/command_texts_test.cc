#include "commands/command_texts.h"

#include "commands/do_main.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <set>
#include <stdexcept>

using namespace orvek::mail::postfix::mailvek_commands;

namespace {

// The names that a row shows: "-p, --start-smtpd" shows two.
std::set<std::string> shownNames()
{
    std::set<std::string> names;
    for (auto const& row : commandTexts()) {
        auto const comma = row.name.find(", ");
        if (comma != std::string_view::npos)
            names.emplace(row.name.substr(0, comma));
        names.emplace(comma == std::string_view::npos ? row.name : row.name.substr(comma + 2));
    }
    return names;
}

} // namespace

TEST(CommandTexts, Has69RowsThatShow82NamesEachOnce)
{
    EXPECT_EQ(commandTexts().size(), 69U);
    EXPECT_EQ(shownNames().size(), 82U);
}

TEST(CommandTexts, ShowsEveryCommandThatCanBeRun)
{
    auto const shown = shownNames();
    for (auto const& [name, handler] : commandMap())
        EXPECT_TRUE(shown.contains(name)) << name;
}

TEST(CommandTexts, HasBothTextsOfAUsageOrNeither)
{
    for (auto const& row : commandTexts())
        EXPECT_EQ(row.summary == nullptr, row.usage_line == nullptr) << row.name;
}

TEST(CommandTexts, BeginsEachUsageLineWithTheCommand)
{
    for (auto const& row : commandTexts()) {
        if (!row.usage_line)
            continue;
        EXPECT_EQ(std::string_view(row.usage_line).substr(0, row.name.size() + 1),
                  std::string(row.name) + " ");
    }
}

TEST(CommandTexts, HasTheArgumentsInBothTextsAlikeButForFiveCommands)
{
    std::set<std::string_view> const differ = {"--rename-mailname", "--add-mailbox",
                                               "--set-password", "--set-accounts-format",
                                               "--add-handler"};
    for (auto const& row : commandTexts()) {
        if (!row.usage_line)
            continue;
        std::string const from_arguments = std::string(row.name) + " " + row.arguments;
        EXPECT_EQ(row.usage_line != from_arguments, differ.contains(row.name)) << row.name;
    }
}

TEST(CommandTexts, HasAUsageForEachCommandThatParsesOptions)
{
    std::set<std::string_view> const parse_nothing = {"--features",
                                                      "--get-max-letter-size",
                                                      "--get-mailbox-size-limit",
                                                      "-p, --start-smtpd",
                                                      "-o, --stop-smtpd",
                                                      "-r, --restart-smtpd",
                                                      "-s, --status-smtpd",
                                                      "-l, --start-qmail-send",
                                                      "-m, --stop-qmail-send",
                                                      "-i, --start-maild",
                                                      "-t, --stop-maild",
                                                      "-z, --restart-maild",
                                                      "-e, --status-maild",
                                                      "-a, --enable-message-submission",
                                                      "-b, --disable-message-submission",
                                                      "--help-commands",
                                                      "--help-legacy",
                                                      "-h, --help"};
    for (auto const& row : commandTexts())
        EXPECT_EQ(row.usage_line == nullptr, parse_nothing.contains(row.name)) << row.name;
}

TEST(CommandTexts, IndentsEachFurtherLineOfADescriptionByEightBlanks)
{
    for (auto const& row : commandTexts()) {
        std::string_view const text = row.description;
        for (size_t at = text.find('\n'); at != std::string_view::npos;
             at = text.find('\n', at + 1))
            EXPECT_EQ(text.substr(at + 1, 8), "        ") << row.name;
    }
}

TEST(TextsOf, FindsARowByItsWholeName)
{
    EXPECT_STREQ(textsOf("--remove-mailname").description, "removes mailname to the mail domain");
    EXPECT_STREQ(textsOf("--add-domain").summary, "add a domain");
    EXPECT_STREQ(textsOf("--add-domain").usage_line,
                 "--add-domain --domain-name=<domain> [--disk-quota=quota]");
}

TEST(TextsOf, PutsThePasswordVariablesBehindTheUsageOfWhatSetsAPassword)
{
    EXPECT_STREQ(textsOf("--set-password").usage_line,
                 "--set-password --domain-name=<domain_name> --mailname=<mail_name> "
                 "[--mail-domain-disabled|-D]\n"
                 "        The noncrypted password is transferred in the environment variable "
                 "ORV_PASSWORD,\n"
                 "        or crypted password is transferred in the environment variable "
                 "ORV_CRYPTED_PASSWORD");
}

TEST(TextsOf, RefusesANameThatNoRowHas)
{
    EXPECT_THROW(textsOf("--start-smtpd"), std::logic_error);
    EXPECT_THROW(textsOf(""), std::logic_error);
}
