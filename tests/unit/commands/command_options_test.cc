#include "commands/command_options.h"

#include "command_line.h"
#include "commands/option_types.h"
#include "support/child_run.h"
#include "util/report_exception.h"

#include <gtest/gtest.h>

using namespace orvek::mail::postfix::mailvek_commands;

namespace {

// Parses the whitelist's options with this mask. Status 2: an exception that the parser lets pass.
ChildRun whitelist(std::string const& mask)
{
    return inChild([&] {
        ProgramOptionsHelper helper("add a network to whitelist", "--add-whitelist");
        formWhitelistOptions(helper);
        CommandLine line({"--add-whitelist", "--ip-address=192.0.2.0", "--netmask", mask});
        try {
            standardOptionsParse(helper, line.argc(), line.argv());
        } catch (std::exception const& e) {
            orvek::reportException<std::exception>(e);
            return 2;
        }
        return 0;
    });
}

constexpr Option each_type[] = {
    {"flag", OptionType::flag, Presence::mandatory, "a flag", 'F'},
    {"text", OptionType::text, Presence::mandatory, "a text"},
    {"texts", OptionType::texts, Presence::optional, "some texts"},
    {"number", OptionType::number, Presence::optional, "a number"},
    {"lock-time", OptionType::lock_time, Presence::optional, "a time"},
    {"mask", OptionType::prefix_length, Presence::optional, "a mask"},
    {"format", OptionType::format, Presence::optional, "a format"},
    {"component", OptionType::components, Presence::optional, "a component"},
};

ProgramOptionsHelper parsed(std::initializer_list<std::string> words)
{
    ProgramOptionsHelper helper("try", "--try");
    declareOptions(helper, each_type);
    CommandLine line(words);
    helper.parse(line.argc(), line.argv());
    return helper;
}

} // namespace

TEST(DeclaredOptions, GiveValuesOfTheirTypes)
{
    auto const helper =
        parsed({"--try", "--flag", "--text=a", "--texts=b", "--texts=c", "--number=-5",
                "--lock-time=7", "--mask=24", "--format=both", "--component=smtp"});
    auto const& values = helper.values();
    EXPECT_EQ(values.count("flag"), 1U);
    EXPECT_EQ(values["text"].as<std::string>(), "a");
    EXPECT_EQ(values["texts"].as<std::vector<std::string>>(), (std::vector<std::string>{"b", "c"}));
    EXPECT_EQ(values["number"].as<long>(), -5);
    EXPECT_EQ(values["lock-time"].as<short>(), 7);
    EXPECT_EQ(values["mask"].as<IPv4Mask>().value, 24);
    EXPECT_TRUE(values["format"].as<ShortnameFormat>().value);
    EXPECT_EQ(values["component"].as<SelectedMailComponents>().mask, SelectedMailComponents::smtp);
}

TEST(DeclaredOptions, HaveADefaultForTheLockTimeAlone)
{
    auto const helper = parsed({"--try", "--text=a"});
    EXPECT_EQ(helper.values()["lock-time"].as<short>(), -1);
    for (auto const* const name : {"texts", "number", "mask", "format", "component"})
        EXPECT_EQ(helper.values().count(name), 0U) << name;
}

TEST(DeclaredOptions, KnowTheirShortForm)
{
    EXPECT_EQ(parsed({"--try", "--text=a", "-F"}).values().count("flag"), 1U);
}

TEST(DeclaredOptions, AreMandatoryUnlessTheyAreFlags)
{
    EXPECT_THROW(parsed({"--try", "--flag"}), MissingMandatoryOption);
    EXPECT_NO_THROW(parsed({"--try", "--text=a"}));
}

TEST(WhitelistOptions, AreAnAddressAndAMaskBothMandatory)
{
    ProgramOptionsHelper helper("add a network to whitelist",
                                "--add-whitelist --ip-address=<ip_address> --netmask=<netmask>");
    formWhitelistOptions(helper);
    CommandLine line({"--add-whitelist", "--ip-address=192.0.2.0", "--netmask=24"});
    helper.parse(line.argc(), line.argv());
    EXPECT_EQ(helper.values()["ip-address"].as<std::string>(), "192.0.2.0");
    EXPECT_EQ(helper.values()["netmask"].as<IPv4Mask>().value, 24);
}

TEST(WhitelistOptions, ShowTheirDescriptionsInTheUsage)
{
    auto const run = inChild([]() -> int {
        ProgramOptionsHelper helper("add a network to whitelist", "--add-whitelist");
        formWhitelistOptions(helper);
        CommandLine line({"--add-whitelist", "--help"});
        standardOptionsParse(helper, line.argc(), line.argv());
        return 1;
    });
    EXPECT_EQ(run.status, 0);
    EXPECT_EQ(run.out, "add a network to whitelist\n"
                       "Usage: --add-whitelist\n"
                       "Allowed options to add a network to whitelist:\n"
                       "  --ip-address arg      IPv4 address (mandatory)\n"
                       "  --netmask arg         netmask (mandatory)\n"
                       "  -h [ --help ]         displays this help message\n\n");
}

TEST(WhitelistOptions, NameTheMaskFirstWhenBothAreMissing)
{
    ProgramOptionsHelper helper("add a network to whitelist", "--add-whitelist");
    formWhitelistOptions(helper);
    CommandLine line({"--add-whitelist"});
    try {
        helper.parse(line.argc(), line.argv());
        ADD_FAILURE() << "accepted";
    } catch (MissingMandatoryOption const& e) {
        EXPECT_STREQ(e.what(), "mandatory option \"--netmask\" is not specified");
    }
}

TEST(WhitelistOptions, RefuseATooLongPrefixLikeAnyBadOption)
{
    auto const run = whitelist("33");
    EXPECT_EQ(run.status, 1);
    EXPECT_EQ(run.err, "the argument ('33') for option '--netmask' is invalid\n");
    EXPECT_EQ(run.out.find(run.err + "add a network to whitelist\nUsage: --add-whitelist\n"), 0U);
}

TEST(WhitelistOptions, LetAMaskWithoutANumberPassTheStandardCatch)
{
    auto const run = whitelist("x");
    EXPECT_EQ(run.status, 2);
    EXPECT_EQ(run.err, "Fatal error: boost::wrapexcept<boost::bad_lexical_cast>(bad lexical cast: "
                       "source type value could not be interpreted as target)\n");
    EXPECT_EQ(run.out, run.err);
}
