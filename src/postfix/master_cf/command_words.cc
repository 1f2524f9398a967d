#include "postfix/master_cf/command_words.h"

#include <algorithm>
#include <utility>

namespace orvek::mail::postfix {

CommandWords::CommandWords(std::initializer_list<std::string> list)
{
    for (std::string const& word : list)
        push_back(word);
}

void CommandWords::push_back(std::string word)
{
    if (words->size() != count)
        words = std::make_shared<std::list<std::string>>(begin(), end());
    words->push_back(std::move(word));
    last = std::prev(words->end());
    ++count;
}

bool operator==(CommandWords const& a, CommandWords const& b)
{
    return std::ranges::equal(a, b);
}

} // namespace orvek::mail::postfix
