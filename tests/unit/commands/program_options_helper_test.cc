#include "commands/program_options_helper.h"

#include "command_line.h"
#include "commands/option_types.h"
#include "lib/report/visible.h"
#include "support/child_run.h"
#include "util/report_exception.h"

#include <gtest/gtest.h>

using namespace orvek::mail::postfix::mailvek_commands;
namespace po = boost::program_options;

namespace {

ProgramOptionsHelper domainHelper()
{
    ProgramOptionsHelper helper("add a domain",
                                "--add-domain --domain-name=<domain> [--disk-quota=quota]");
    helper.addOptions()("domain-name", po::value<std::string>(), "domain name", true) //
        ("disk-quota", po::value<long>(), "disk quota", false)                        //
        ("verbose", "say more", true);
    return helper;
}

char const domain_usage[] = "add a domain\n"
                            "Usage: --add-domain --domain-name=<domain> [--disk-quota=quota]\n"
                            "Allowed options to add a domain:\n"
                            "  --domain-name arg     domain name (mandatory)\n"
                            "  --disk-quota arg      disk quota\n"
                            "  --verbose             say more\n"
                            "  -h [ --help ]         displays this help message\n"
                            "\n";

// Runs a command with these options that prints the values it got.
ChildRun command(ProgramOptionsHelper helper, std::initializer_list<std::string> words)
{
    return inChild([&] {
        CommandLine line(words);
        standardOptionsParse(helper, line.argc(), line.argv());
        if (helper.values().count("domain-name") != 0)
            std::cout << '[' << helper.values()["domain-name"].as<std::string>() << ']';
        if (helper.values().count("disk-quota") != 0)
            std::cout << '[' << helper.values()["disk-quota"].as<long>() << ']';
        std::cout << (helper.values().count("verbose") != 0 ? "verbose" : "quiet");
        return 0;
    });
}

ChildRun addDomain(std::initializer_list<std::string> words)
{
    return command(domainHelper(), words);
}

// Expects the message on both streams, the usage on standard output, and status 1.
void expectRefused(ChildRun const& run, std::string const& message)
{
    EXPECT_EQ(run.status, 1);
    EXPECT_EQ(run.err, visible(message) + "\n");
    EXPECT_EQ(run.out, visible(message) + "\n" + domain_usage);
}

} // namespace

TEST(MissingMandatoryOption, NamesTheOptionAndIsALibraryError)
{
    MissingMandatoryOption const error("domain-name");
    EXPECT_STREQ(error.what(), "mandatory option \"--domain-name\" is not specified");
    EXPECT_NE(dynamic_cast<po::error const*>(&error), nullptr);
}

TEST(MissingMandatoryOption, KeepsItsBareTypeInAReport)
{
    auto const run = printedBy([] {
        try {
            throw MissingMandatoryOption("email");
        } catch (std::exception const& e) {
            orvek::reportException<std::exception>(e);
        }
    });
    EXPECT_EQ(run.err,
              "Fatal error: orvek::mail::postfix::mailvek_commands::MissingMandatoryOption("
              "mandatory option \"--email\" is not specified)\n");
}

TEST(OptionsParse, GivesTheValuesBehindTheCommandsName)
{
    auto const run = addDomain({"--add-domain", "--domain-name=example.com", "--disk-quota", "-1"});
    EXPECT_EQ(run.status, 0);
    EXPECT_EQ(run.out, "[example.com][-1]quiet");
    EXPECT_EQ(run.err, "");
}

TEST(OptionsParse, SkipsArgumentZeroWhateverItIs)
{
    EXPECT_EQ(addDomain({"--anything", "--domain-name=x"}).out, "[x]quiet");
}

TEST(OptionsParse, AcceptsUnambiguousAbbreviationsAndIgnoresStrayWords)
{
    EXPECT_EQ(addDomain({"--add-domain", "--dom=x", "stray", "--verb"}).out, "[x]verbose");
}

TEST(OptionsParse, TakesAnEmptyValueAsASeparateWordOnly)
{
    EXPECT_EQ(addDomain({"--add-domain", "--domain-name", ""}).out, "[]quiet");
    expectRefused(
        addDomain({"--add-domain", "--domain-name="}),
        "the argument for option '--domain-name' should follow immediately after the equal sign");
}

TEST(OptionsParse, RefusesAnUnknownOption)
{
    expectRefused(addDomain({"--add-domain", "--domain-name=x", "--bogus"}),
                  "unrecognised option '--bogus'");
}

TEST(OptionsParse, RefusesAMalformedNumber)
{
    expectRefused(addDomain({"--add-domain", "--domain-name=x", "--disk-quota=abc"}),
                  "the argument ('abc') for option '--disk-quota' is invalid");
}

TEST(OptionsParse, RefusesARepeatedValueAndARepeatedFlag)
{
    expectRefused(addDomain({"--add-domain", "--domain-name=x", "--domain-name=y"}),
                  "option '--domain-name' cannot be specified more than once");
    expectRefused(addDomain({"--add-domain", "--domain-name=x", "--verbose", "--verbose"}),
                  "option '--verbose' cannot be specified more than once");
}

TEST(OptionsParse, RefusesAMissingMandatoryOption)
{
    expectRefused(addDomain({"--add-domain"}),
                  "mandatory option \"--domain-name\" is not specified");
}

TEST(OptionsParse, NamesTheLastDeclaredOfSeveralMissingOptions)
{
    ProgramOptionsHelper helper("try", "--try");
    helper.addOptions()("first", po::value<std::string>(), "one", true) //
        ("second", po::value<std::string>(), "two", true);
    CommandLine line({"--try"});
    try {
        helper.parse(line.argc(), line.argv());
        ADD_FAILURE() << "accepted";
    } catch (MissingMandatoryOption const& e) {
        EXPECT_STREQ(e.what(), "mandatory option \"--second\" is not specified");
    }
}

TEST(OptionsParse, NeverTakesAFlagForMandatory)
{
    EXPECT_EQ(addDomain({"--add-domain", "--domain-name=x"}).status, 0);
}

TEST(OptionsParse, RaisesTheMissingOptionWithoutTheStandardCatch)
{
    auto helper = domainHelper();
    CommandLine line({"--add-domain"});
    EXPECT_THROW(helper.parse(line.argc(), line.argv()), MissingMandatoryOption);
}

TEST(OptionsHelp, PrintsDescriptionUsageAndOptionsOnStandardOutput)
{
    for (auto const* const word : {"--help", "-h"}) {
        auto const run = addDomain({"--add-domain", word});
        EXPECT_EQ(run.status, 0);
        EXPECT_EQ(run.out, domain_usage);
        EXPECT_EQ(run.err, "");
    }
}

TEST(OptionsHelp, BreaksLinesAt80AndGivesDescriptionsTheHalfOfThem)
{
    auto const run = inChild([]() -> int {
        ProgramOptionsHelper helper("try", "--try");
        std::string const name(40, 'n');
        std::string const words = std::string(19, 'a') + " " + std::string(19, 'b') + " c";
        helper.addOptions()(name.c_str(), words.c_str(), false);
        helper.usage(0, std::cout);
    });
    EXPECT_EQ(run.out, "try\nUsage: --try\nAllowed options to try:\n"
                       "  --nnnnnnnnnnnnnnnnnnnnnnnnnnnnnnnnnnnnnnnn \n"
                       "                                        aaaaaaaaaaaaaaaaaaa "
                       "bbbbbbbbbbbbbbbbbbb\n"
                       "                                        c\n\n");
}

TEST(OptionsHelp, LosesToAnUnknownOptionAndToAMalformedValue)
{
    EXPECT_EQ(addDomain({"--add-domain", "--help", "--bogus"}).status, 1);
    EXPECT_EQ(addDomain({"--add-domain", "--help", "--disk-quota=abc"}).status, 1);
}

TEST(OptionsParse, RefusesOptionsOfAnyBytesAndLengthsByName)
{
    for (std::string const& word :
         {std::string("--\xff"), std::string("--\nbogus\n"), std::string("--%s%n"),
          "--" + std::string(100000, 'a'), "--" + std::string(100000, '\xff')})
        expectRefused(addDomain({"--add-domain", "--domain-name=x", word}),
                      "unrecognised option '" + word + "'");
    expectRefused(addDomain({"--add-domain", "--domain-name\n=x"}),
                  "unrecognised option '--domain-name\n=x'");
    expectRefused(addDomain({"--add-domain", "-D"}), "unrecognised option '-D'");
    expectRefused(addDomain({"--add-domain", "--="}),
                  "the argument for option should follow immediately after the equal sign");
}

TEST(OptionsParse, RefusesAFlagThatIsRepeatedInOneWord)
{
    for (auto const& word : {"-" + std::string(2, 'h'), "-" + std::string(100000, 'h')})
        expectRefused(addDomain({"--add-domain", word}),
                      "option '--help' cannot be specified more than once");
}

TEST(OptionsParse, RefusesMalformedNumbersOfAnyBytesAndLengthsByName)
{
    for (std::string const& word : {std::string("1\n"), std::string("\xff"), std::string("%s%n"),
                                    std::string("1 "), std::string(100000, '9')})
        expectRefused(addDomain({"--add-domain", "--domain-name=x", "--disk-quota", word}),
                      "the argument ('" + word + "') for option '--disk-quota' is invalid");
}

TEST(OptionsParse, RefusesAnEmptyNumber)
{
    expectRefused(addDomain({"--add-domain", "--domain-name=x", "--disk-quota", ""}),
                  "the argument for option '--disk-quota' is invalid");
}

TEST(OptionsParse, NamesWordsThatHoldThePlaceholdersOfTheLibrarysTexts)
{
    for (std::string const word :
         {"%value%", "%canonical_option%", "%original_token%", "%option%", "%prefix%", "%%value%%",
          "100%", "%\1value%\1", "%value%%value%"}) {
        expectRefused(addDomain({"--add-domain", "--domain-name=x", "--disk-quota=" + word}),
                      "the argument ('" + word + "') for option '--disk-quota' is invalid");
        expectRefused(addDomain({"--add-domain", "--" + word}),
                      "unrecognised option '--" + word + "'");
    }
}

TEST(OptionsParse, IgnoresStrayWordsOfAnyBytesAndLengths)
{
    for (std::string const& word : {std::string(), std::string("-"), std::string("\xff\xfe"),
                                    std::string("\n"), std::string(100000, 'a')}) {
        auto const run = addDomain({"--add-domain", "--domain-name=x", word});
        EXPECT_EQ(run.status, 0) << word.substr(0, 40);
        EXPECT_EQ(run.out, "[x]quiet");
        EXPECT_EQ(run.err, "");
    }
}

TEST(OptionsParse, GivesAnyValueUnchanged)
{
    std::string const value = std::string(100000, '\xff') + "\n%n%s%value%";
    EXPECT_EQ(addDomain({"--add-domain", "--domain-name", value}).out, "[" + value + "]quiet");
    EXPECT_EQ(addDomain({"--add-domain", "--domain-name=" + value}).out, "[" + value + "]quiet");
}

TEST(OptionsValues, AreABadCastWhenTheyWereNotStored)
{
    auto helper = domainHelper();
    CommandLine line({"--add-domain", "--domain-name=x"});
    helper.parse(line.argc(), line.argv());
    EXPECT_THROW(helper.values()["disk-quota"].as<long>(), boost::bad_any_cast);
}
