#include "commands/option_error_text.h"

#include <map>

namespace orvek::mail::postfix::mailvek_commands {

namespace po = boost::program_options;

namespace {

// Gives access to the words that the library puts into the text of an error. Never instantiated: it
// exists because only a derived class may name that member.
class ErrorWords : po::error_with_option_name
{
public:
    static std::map<std::string, std::string>& of(po::error_with_option_name& e)
    {
        return e.*(&ErrorWords::m_substitutions);
    }
};

// The library replaces "%value%" in its text until none is left. It would loop forever if the value
// itself held "%value%". A mark after each percent sign of the words hides them from it.
constexpr char hiding_mark = '\1';

std::string withHiddenPercents(std::string const& word)
{
    std::string hidden;
    for (char const c : word) {
        hidden += c;
        if (c == '%')
            hidden += hiding_mark;
    }
    return hidden;
}

std::string withShownPercents(std::string const& text)
{
    std::string shown;
    for (size_t i = 0; i < text.size(); ++i) {
        shown += text[i];
        if (text[i] == '%' && i + 1 < text.size() && text[i + 1] == hiding_mark)
            ++i;
    }
    return shown;
}

} // namespace

std::string optionErrorText(po::error& e)
{
    auto* const named = dynamic_cast<po::error_with_option_name*>(&e);
    if (!named)
        return e.what();
    for (auto& [name, word] : ErrorWords::of(*named))
        word = withHiddenPercents(word);
    return withShownPercents(named->what());
}

} // namespace orvek::mail::postfix::mailvek_commands
