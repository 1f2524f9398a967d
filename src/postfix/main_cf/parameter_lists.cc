#include "postfix/main_cf/parameter_lists.h"

namespace orvek::mail::postfix {

namespace {

constexpr auto none = std::string_view::npos;

// Calls use with each piece between runs of the separators.
template<class Use>
void split(std::string_view text, std::string_view separators, Use use)
{
    for (size_t begin = 0; !text.empty();) {
        size_t const end = text.find_first_of(separators, begin);
        use(text.substr(begin, end - begin));
        if (end == none)
            return;
        size_t const next = text.find_first_not_of(separators, end);
        begin = next == none ? text.size() : next;
    }
}

} // namespace

std::vector<std::string> splitSimpleList(std::string_view text)
{
    std::vector<std::string> words;
    split(text, " \t,", [&](std::string_view word) { words.emplace_back(word); });
    return words;
}

std::vector<std::string> splitCompoundList(std::string_view text)
{
    std::vector<std::string> clauses;
    split(text, ",", [&](std::string_view piece) {
        std::string_view const clause = trimmed(piece);
        if (!clause.empty())
            clauses.emplace_back(clause);
    });
    return clauses;
}

std::string joinList(std::vector<std::string> const& elements)
{
    std::string text;
    for (size_t i = 0; i < elements.size(); ++i)
        text.append(i == 0 ? "" : ", ").append(elements[i]);
    return text;
}

std::string_view trimmed(std::string_view text)
{
    constexpr std::string_view white_space = " \t\n\v\f\r";
    size_t const begin = text.find_first_not_of(white_space);
    if (begin == none)
        return {};
    return text.substr(begin, text.find_last_not_of(white_space) - begin + 1);
}

} // namespace orvek::mail::postfix
