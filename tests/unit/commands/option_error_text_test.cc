#include "commands/option_error_text.h"

#include <gtest/gtest.h>

#include <boost/program_options/cmdline.hpp>

using namespace orvek::mail::postfix::mailvek_commands;
namespace po = boost::program_options;

namespace {

std::string refusalOf(std::string const& word)
{
    po::invalid_option_value error(word);
    error.set_option_name("size");
    error.set_prefix(po::command_line_style::allow_long);
    return optionErrorText(error);
}

} // namespace

TEST(OptionErrorText, IsTheLibrarysOwnText)
{
    po::invalid_option_value error("abc");
    error.set_option_name("size");
    error.set_prefix(po::command_line_style::allow_long);
    std::string const own = error.what();
    EXPECT_EQ(optionErrorText(error), own);
    po::unknown_option unknown("--bogus");
    EXPECT_EQ(optionErrorText(unknown), "unrecognised option '--bogus'");
}

TEST(OptionErrorText, IsTheTextOfAnErrorThatNamesNoOption)
{
    po::error error("100% of %value%");
    EXPECT_EQ(optionErrorText(error), "100% of %value%");
}

TEST(OptionErrorText, EndsWithAWordThatHoldsItsOwnPlaceholder)
{
    for (std::string const word :
         {"%value%", "%%value%%", "%value%%value%", "%option%", "%canonical_option%", "%", "%%"})
        EXPECT_EQ(refusalOf(word), "the argument ('" + word + "') for option '--size' is invalid");
}

TEST(OptionErrorText, KeepsTheMarkThatAWordAlreadyHas)
{
    for (std::string const word : {"\1", "%\1", "%\1\1", "\1%\1value%\1"})
        EXPECT_EQ(refusalOf(word), "the argument ('" + word + "') for option '--size' is invalid");
}
