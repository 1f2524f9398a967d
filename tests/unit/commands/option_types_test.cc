#include "commands/option_types.h"

#include "command_line.h"
#include "commands/program_options_helper.h"
#include "support/child_run.h"

#include <gtest/gtest.h>

#include <boost/lexical_cast/bad_lexical_cast.hpp>

using namespace orvek::mail::postfix::mailvek_commands;
namespace po = boost::program_options;

namespace {

template<class T>
T parsed(std::initializer_list<std::string> words, char const* option)
{
    ProgramOptionsHelper helper("try", "--try");
    helper.addOptions()(option, po::value<T>(), "value", false);
    CommandLine line(words);
    helper.parse(line.argc(), line.argv());
    return helper.values().count(option) != 0 ? helper.values()[option].template as<T>() : T();
}

bool format(std::initializer_list<std::string> words)
{
    return parsed<ShortnameFormat>(words, "account-format").value;
}

unsigned short mask(std::initializer_list<std::string> words)
{
    return parsed<IPv4Mask>(words, "netmask").value;
}

unsigned int components(std::initializer_list<std::string> words)
{
    return parsed<SelectedMailComponents>(words, "mail-component").mask;
}

template<class Parse>
std::string refusal(Parse parse)
{
    try {
        parse();
    } catch (po::invalid_option_value const& e) {
        return e.what();
    }
    return "accepted";
}

} // namespace

TEST(ShortnameFormat, IsFalseForCompoundAndTrueForBoth)
{
    EXPECT_FALSE(format({"--try", "--account-format=compound"}));
    EXPECT_TRUE(format({"--try", "--account-format=both"}));
    EXPECT_TRUE(format({"--try", "--account-format", "both"}));
}

TEST(ShortnameFormat, RefusesAnyOtherWordByName)
{
    EXPECT_EQ(refusal([] {
                  format({"--try", "--account-format=short"});
              }),
              "the argument ('short') for option '--account-format' is invalid");
    EXPECT_NE(refusal([] { format({"--try", "--account-format=Both"}); }), "accepted");
    EXPECT_NE(refusal([] { format({"--try", "--account-format", ""}); }), "accepted");
}

TEST(ShortnameFormat, RefusesASecondOccurrence)
{
    EXPECT_THROW(format({"--try", "--account-format=both", "--account-format=both"}),
                 po::multiple_occurrences);
}

TEST(IPv4Mask, AcceptsPrefixLengthsFromZeroToThirtyTwo)
{
    EXPECT_EQ(mask({"--try", "--netmask=0"}), 0U);
    EXPECT_EQ(mask({"--try", "--netmask=24"}), 24U);
    EXPECT_EQ(mask({"--try", "--netmask=32"}), 32U);
}

TEST(IPv4Mask, RefusesALongerPrefixByName)
{
    EXPECT_EQ(refusal([] {
                  mask({"--try", "--netmask=33"});
              }),
              "the argument ('33') for option '--netmask' is invalid");
    EXPECT_NE(refusal([] { mask({"--try", "--netmask=65535"}); }), "accepted");
}

TEST(IPv4Mask, LeavesAWordWithoutANumberToTheConversion)
{
    for (auto const* const word : {"x", "24x", "70000", "255.255.255.0", " 24"})
        EXPECT_THROW(mask({"--try", "--netmask", word}), boost::bad_lexical_cast) << word;
    EXPECT_THROW(mask({"--try", "--netmask", ""}), boost::bad_lexical_cast);
}

TEST(IPv4Mask, RefusesASecondOccurrence)
{
    EXPECT_THROW(mask({"--try", "--netmask=1", "--netmask=1"}), po::multiple_occurrences);
}

TEST(SelectedMailComponents, HasABitForEachWord)
{
    EXPECT_EQ(components({"--try", "--mail-component=mta"}), 0x1U);
    EXPECT_EQ(components({"--try", "--mail-component=smtp"}), 0x2U);
    EXPECT_EQ(components({"--try", "--mail-component=smtps"}), 0x4U);
    EXPECT_EQ(components({"--try", "--mail-component=submission"}), 0x8U);
    EXPECT_EQ(components({"--try", "--mail-component=pop3"}), 0x10U);
    EXPECT_EQ(components({"--try", "--mail-component=imap"}), 0x20U);
    EXPECT_EQ(components({"--try", "--mail-component=pop3s"}), 0x40U);
    EXPECT_EQ(components({"--try", "--mail-component=imaps"}), 0x80U);
    EXPECT_EQ(components({"--try", "--mail-component=all"}), 0xffffU);
}

TEST(SelectedMailComponents, AddsUpOverRepeatedOptions)
{
    EXPECT_EQ(components({"--try", "--mail-component=smtp", "--mail-component=pop3"}), 0x12U);
    EXPECT_EQ(components({"--try", "--mail-component=smtp", "--mail-component=smtp"}), 0x2U);
    EXPECT_EQ(components({"--try", "--mail-component=all", "--mail-component=mta"}), 0xffffU);
}

TEST(SelectedMailComponents, IsEmptyWithoutTheOption)
{
    EXPECT_EQ(components({"--try"}), 0U);
}

TEST(SelectedMailComponents, RefusesAnUnknownWordByName)
{
    EXPECT_EQ(refusal([] {
                  components({"--try", "--mail-component=ftp"});
              }),
              "the argument ('unknown component ftp') for option '--mail-component' is invalid");
    EXPECT_NE(refusal([] { components({"--try", "--mail-component=SMTP"}); }), "accepted");
}

TEST(SelectedMailComponents, AddsUpOverTheWordsOfOneCall)
{
    boost::any value;
    validate(value, {"imap", "imaps"}, static_cast<SelectedMailComponents*>(nullptr), 0);
    EXPECT_EQ(boost::any_cast<SelectedMailComponents>(value).mask, 0xa0U);
    validate(value, {}, static_cast<SelectedMailComponents*>(nullptr), 0);
    EXPECT_EQ(boost::any_cast<SelectedMailComponents>(value).mask, 0xa0U);
}

TEST(OptionTypes, RefuseWordsOfAnyBytesAndLengths)
{
    for (std::string const& word : {std::string(), std::string("\xff\xfe"), std::string("imap\n"),
                                    std::string("%s%n"), std::string(100000, 'a')}) {
        EXPECT_THROW(format({"--try", "--account-format", word}), po::invalid_option_value);
        EXPECT_THROW(mask({"--try", "--netmask", word}), boost::bad_lexical_cast);
        EXPECT_THROW(components({"--try", "--mail-component", word}), po::invalid_option_value);
    }
    EXPECT_THROW(mask({"--try", "--netmask", std::string(100000, '9')}), boost::bad_lexical_cast);
}
