#include "postfix/main_cf/parameter_lists.h"

#include <boost/algorithm/string/join.hpp>
#include <boost/algorithm/string/split.hpp>
#include <boost/algorithm/string/trim.hpp>

#include <string_view>

namespace orvek::mail::postfix {

namespace {

// The pieces between runs of the separators.
std::vector<std::string> split(std::string const& text, std::string_view separators)
{
    auto const separates = [&](char c) { return separators.find(c) != std::string_view::npos; };
    std::vector<std::string> pieces;
    if (!text.empty())
        boost::algorithm::split(pieces, text, separates, boost::algorithm::token_compress_on);
    return pieces;
}

} // namespace

std::vector<std::string> splitSimpleList(std::string const& text)
{
    return split(text, " \t,");
}

std::vector<std::string> splitCompoundList(std::string const& text)
{
    std::vector<std::string> clauses = split(text, ",");
    for (std::string& clause : clauses)
        boost::algorithm::trim(clause);
    std::erase(clauses, "");
    return clauses;
}

std::string joinList(std::vector<std::string> const& elements)
{
    return boost::algorithm::join(elements, ", ");
}

} // namespace orvek::mail::postfix
