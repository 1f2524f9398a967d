// courier_lines_fuzzer - compares the changes of Courier's files with a reference
//
// The first line of an input is the list of changes, separated by blanks: "+NAME=value" sets a
// variable and "-NAME" removes it. Other words are ignored, and so are changes that do not fit in
// the list. The rest is the file.

#include "fuzz_target.h"
#include "mail/lib/server/courier_lines.h"

#include <sstream>
#include <string>
#include <vector>

namespace {

constexpr std::size_t most_changes = 31;

struct Change
{
    std::string var;
    EnvAction action;
    std::string value;
    bool met = false;
};

std::vector<Change> changesOf(std::string const& line)
{
    std::vector<Change> changes;
    // Names and values are C strings, which end at a NUL.
    std::istringstream words(line.c_str());
    for (std::string word; changes.size() < most_changes && words >> word;) {
        std::size_t const equals = word.find('=');
        if (word[0] == '+' && equals != std::string::npos)
            changes.push_back({word.substr(1, equals - 1), ENV_ADD, word.substr(equals + 1)});
        else if (word[0] == '-')
            changes.push_back({word.substr(1), ENV_DEL, ""});
    }
    return changes;
}

std::string changed(std::string const& text, std::vector<Change> changes)
{
    std::string result;
    for (std::size_t begin = 0, end = 0; begin < text.size(); begin = end) {
        end = std::min(text.find('\n', begin), text.size() - 1) + 1;
        std::string const line = text.substr(begin, end - begin);
        auto change = changes.begin();
        while (change != changes.end() && !line.starts_with(change->var + "="))
            ++change;
        if (change == changes.end())
            result += line;
        else if (change->action == ENV_ADD && !change->met)
            result += change->var + "=" + change->value + "\n";
        if (change != changes.end())
            change->met = true;
    }
    if (!text.empty() && !text.ends_with('\n'))
        result += "\n";
    for (Change const& change : changes)
        if (change.action == ENV_ADD && !change.met)
            result += change.var + "=" + change.value + "\n";
    return result;
}

std::string copied(std::string const& text, std::vector<Change> const& changes)
{
    std::vector<EnvChange> env;
    for (Change const& change : changes)
        env.push_back({change.var.c_str(), change.action, change.value.c_str()});
    env.push_back({nullptr, ENV_ADD, nullptr});
    FILE* const from = tmpfile();
    char* written = nullptr;
    std::size_t length = 0;
    FILE* const to = open_memstream(&written, &length);
    fwrite(text.data(), 1, text.size(), from);
    rewind(from);
    copy_changed_lines(from, to, env.data());
    require(feof(from) != 0 && ferror(to) == 0, "the copy fails");
    fclose(from);
    fclose(to);
    std::string const result(written, length);
    free(written);
    return result;
}

} // namespace

extern "C" int LLVMFuzzerTestOneInput(std::uint8_t const* data, std::size_t size)
{
    std::string const input(reinterpret_cast<char const*>(data), size);
    std::size_t const newline = std::min(input.find('\n'), input.size());
    auto const changes = changesOf(input.substr(0, newline));
    std::string const text = newline < input.size() ? input.substr(newline + 1) : "";
    require(copied(text, changes) == changed(text, changes), "the texts differ");
    return 0;
}
