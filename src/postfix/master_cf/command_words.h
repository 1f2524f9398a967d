// command_words - a list of strings that only grows and is cheap to copy
//
// A copy shares its words with the original until one of the two grows, so copying takes the same
// time for any length. The parser of master.cf passes on a copy for each service. Each copy also
// holds the words of all earlier services, so plain lists would take time and memory by the square
// of the file's size.
//
// Iterators and references stay valid as long as any copy that shares the words lives.

#ifndef MAILVEK_POSTFIX_MASTER_CF_COMMAND_WORDS_H
#define MAILVEK_POSTFIX_MASTER_CF_COMMAND_WORDS_H

#include <cstddef>
#include <initializer_list>
#include <list>
#include <memory>
#include <string>

namespace orvek::mail::postfix {

class CommandWords
{
public:
    using value_type = std::string;
    using const_iterator = std::list<std::string>::const_iterator;

    CommandWords() = default;
    CommandWords(std::initializer_list<std::string> list);
    // Declared so that there is no move: a move would leave an object without a list.
    CommandWords(CommandWords const&) = default;
    CommandWords& operator=(CommandWords const&) = default;

    void push_back(std::string word);

    std::size_t size() const { return count; }
    bool empty() const { return count == 0; }
    const_iterator begin() const { return words->begin(); }
    const_iterator end() const { return count == 0 ? words->begin() : std::next(last); }

private:
    // Words after our last one belong to copies that have grown.
    std::shared_ptr<std::list<std::string>> words = std::make_shared<std::list<std::string>>();
    const_iterator last; // unless count is 0
    std::size_t count = 0;
};

bool operator==(CommandWords const& a, CommandWords const& b);

} // namespace orvek::mail::postfix

#endif
