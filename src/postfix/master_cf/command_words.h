// command_words - a list of strings that only grows, and whose copies are cheap
//
// A copy shares its words with the original until one of the two grows; to copy a list takes the
// same time however long it is. The parser of master.cf hands on a copy for each service, which
// holds the words of all services before it as well, so that plain lists would take memory and
// time by the square of the file.
//
// Iterators and references stay valid as long as one of the copies that share the words lives.

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
    // Declared, so that there is no move, which would leave an object without a list.
    CommandWords(CommandWords const&) = default;
    CommandWords& operator=(CommandWords const&) = default;

    void push_back(std::string word);

    std::size_t size() const { return count; }
    bool empty() const { return count == 0; }
    const_iterator begin() const { return words->begin(); }
    const_iterator end() const { return count == 0 ? words->begin() : std::next(last); }

private:
    // Words behind the last one of ours belong to copies that have grown.
    std::shared_ptr<std::list<std::string>> words = std::make_shared<std::list<std::string>>();
    const_iterator last; // unless count is 0
    std::size_t count = 0;
};

bool operator==(CommandWords const& a, CommandWords const& b);

} // namespace orvek::mail::postfix

#endif
