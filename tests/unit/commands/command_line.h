// command_line - makes the argument vector of a main from a list of words

#ifndef MAILVEK_TESTS_UNIT_COMMANDS_COMMAND_LINE_H
#define MAILVEK_TESTS_UNIT_COMMANDS_COMMAND_LINE_H

#include <string>
#include <vector>

class CommandLine
{
public:
    CommandLine(std::initializer_list<std::string> given) : words(given)
    {
        for (auto& word : words)
            pointers.push_back(word.data());
        pointers.push_back(nullptr);
    }

    int argc() const { return static_cast<int>(words.size()); }
    char** argv() { return pointers.data(); }

private:
    std::vector<std::string> words;
    std::vector<char*> pointers;
};

#endif
