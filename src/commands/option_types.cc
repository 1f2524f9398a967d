#include "commands/option_types.h"

#include <boost/lexical_cast.hpp>
#include <boost/program_options/errors.hpp>
#include <boost/program_options/value_semantic.hpp>

#include <algorithm>
#include <string_view>

namespace orvek::mail::postfix::mailvek_commands {

namespace po = boost::program_options;

namespace {

struct Component
{
    std::string_view word;
    unsigned int bits;
};

constexpr Component components[] = {
    {"mta", SelectedMailComponents::mta},     {"smtp", SelectedMailComponents::smtp},
    {"smtps", SelectedMailComponents::smtps}, {"submission", SelectedMailComponents::submission},
    {"pop3", SelectedMailComponents::pop3},   {"imap", SelectedMailComponents::imap},
    {"pop3s", SelectedMailComponents::pop3s}, {"imaps", SelectedMailComponents::imaps},
    {"all", SelectedMailComponents::all},
};
static_assert(std::size(components) == 9);

constexpr unsigned short longest_prefix = 32;

unsigned int componentBits(std::string const& word)
{
    auto const* const found = std::ranges::find(components, word, &Component::word);
    if (found == std::end(components))
        throw po::invalid_option_value("unknown component " + word);
    return found->bits;
}

} // namespace

void validate(boost::any& value, std::vector<std::string> const& tokens, ShortnameFormat*, int)
{
    po::validators::check_first_occurrence(value);
    std::string const& word = po::validators::get_single_string(tokens);
    if (word == "compound")
        value = ShortnameFormat{false};
    else if (word == "both")
        value = ShortnameFormat{true};
    else
        throw po::invalid_option_value(word);
}

void validate(boost::any& value, std::vector<std::string> const& tokens, IPv4Mask*, int)
{
    po::validators::check_first_occurrence(value);
    std::string const& word = po::validators::get_single_string(tokens);
    auto const length = boost::lexical_cast<unsigned short>(word);
    if (length > longest_prefix)
        throw po::invalid_option_value(word);
    value = IPv4Mask{length};
}

// Deliberate: does not check for a first occurrence, because the option may be repeated.
void validate(boost::any& value, std::vector<std::string> const& tokens, SelectedMailComponents*,
              int)
{
    if (value.empty())
        value = SelectedMailComponents{};
    unsigned int bits = 0;
    for (auto const& word : tokens)
        bits |= componentBits(word);
    boost::any_cast<SelectedMailComponents&>(value).mask |= bits;
}

} // namespace orvek::mail::postfix::mailvek_commands
