#include "commands/command_table.h"

#include <gtest/gtest.h>

#include <set>
#include <stdexcept>
#include <string>

using namespace orvek::mail::postfix::mailvek_commands;

TEST(CommandTable, BeginsEachUsageLineWithTheCommand)
{
    for (auto const& row : commandTable()) {
        if (!row.usage_line)
            continue;
        EXPECT_EQ(std::string_view(row.usage_line).substr(0, row.name.size() + 1),
                  std::string(row.name) + " ");
    }
}

TEST(CommandTable, HasTheSameArgumentsInBothTextsButForFive)
{
    std::set<std::string_view> const differ = {"--rename-mailname", "--add-mailbox",
                                               "--set-password", "--set-accounts-format",
                                               "--add-handler"};
    for (auto const& row : commandTable()) {
        if (!row.usage_line)
            continue;
        std::string const from_arguments = std::string(row.name) + " " + row.arguments;
        EXPECT_EQ(row.usage_line != from_arguments, differ.contains(row.name)) << row.name;
    }
}

TEST(CommandTable, DeclaresNoOptionOfACommandTwice)
{
    for (auto const& row : commandTable()) {
        std::set<std::string_view> names;
        for (auto const& option : row.options)
            EXPECT_TRUE(names.insert(option.name).second) << row.name << " --" << option.name;
    }
}

TEST(CommandTable, IndentsEachFurtherLineOfADescriptionByEightBlanks)
{
    for (auto const& row : commandTable()) {
        std::string_view const text = row.description;
        for (size_t at = text.find('\n'); at != std::string_view::npos;
             at = text.find('\n', at + 1))
            EXPECT_EQ(text.substr(at + 1, 8), "        ") << row.name;
    }
}

TEST(CommandTable, TellsOptionsWithoutRunningTheHandler)
{
    auto const options = commandNamed("--add-mailname").options;
    ASSERT_EQ(options.size(), 3U);
    EXPECT_STREQ(options[0].name, "domain-name");
    EXPECT_EQ(options[0].presence, Presence::mandatory);
    EXPECT_STREQ(options[2].name, "disk-quota");
    EXPECT_EQ(options[2].type, OptionType::number);
    EXPECT_EQ(options[2].presence, Presence::optional);
}

TEST(CommandNamed, FindsARowByItsLongAndItsShortName)
{
    EXPECT_STREQ(commandNamed("--remove-mailname").description,
                 "removes mailname to the mail domain");
    EXPECT_EQ(&commandNamed("-p"), &commandNamed("--start-smtpd"));
    EXPECT_EQ(commandNamed("-p").name, "-p, --start-smtpd");
}

TEST(CommandNamed, RefusesANameThatNoRowHas)
{
    EXPECT_THROW(commandNamed("-p, --start-smtpd"), std::logic_error);
    EXPECT_THROW(commandNamed("--add"), std::logic_error);
    EXPECT_THROW(commandNamed(""), std::logic_error);
}

TEST(CommandTexts, NameThePasswordVariablesAfterTheUsageThatNeedsThem)
{
    EXPECT_STREQ(commandNamed("--set-password").usage_line,
                 "--set-password --domain-name=<domain_name> --mailname=<mail_name> "
                 "[--mail-domain-disabled|-D]\n"
                 "        The noncrypted password is transferred in the environment variable "
                 "ORV_PASSWORD,\n"
                 "        or crypted password is transferred in the environment variable "
                 "ORV_CRYPTED_PASSWORD");
}
