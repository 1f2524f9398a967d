#include "postfix/master_cf/master_cf_parser.h"

#include <charconv>

namespace orvek::mail::postfix {

using parser::char_parser;
using parser::Position;

namespace {

constexpr char_parser name_p("-a-z0-9_:.");
constexpr char_parser word_p =
    char_parser("A-Za-z0-9") | char_parser("/!@$%$^&*()-_=+\\|[]{}:;'\"<>.,?*~`");

// The columns of a service. Each stores into its field and returns the position after it, or null
// when it does not match at least one byte.

Position name(Position first, Position last, std::string& value)
{
    Position const end = name_p.skip(first, last);
    if (end == first)
        return nullptr;
    value.assign(first, end);
    return end;
}

Position type(Position first, Position last, ModuleType& value)
{
    std::string_view const rest(first, last);
    for (ModuleType const candidate : module_types) {
        if (rest.starts_with(typeText(candidate))) {
            value = candidate;
            return first + typeText(candidate).size();
        }
    }
    return nullptr;
}

Position answer(Position first, Position last, boost::tribool& value)
{
    if (first == last || (*first != 'y' && *first != 'n' && *first != '-'))
        return nullptr;
    if (*first != '-')
        value = *first == 'y';
    return first + 1;
}

Position number(Position first, Position last, std::int32_t& value)
{
    if (first != last && *first == '-')
        return first + 1;
    std::uint32_t decimal = 0;
    auto const [end, error] = std::from_chars(first, last, decimal);
    if (error != std::errc())
        return nullptr;
    value = static_cast<std::int32_t>(decimal);
    return end;
}

Position wakeup(Position first, Position last, ModuleInfo& info)
{
    Position const end = number(first, last, info.wakeupTime);
    if (!end || *first == '-' || end == last || *end != '?')
        return end;
    info.wakeupIfUsed = true;
    return end + 1;
}

// Goes through a text column by column until one fails.
class Columns
{
public:
    Columns(Position first, Position last) : position(first), last(last) {}

    template<class Column, class Field>
    Columns& column(Column parse, Field& field)
    {
        if (position)
            position = parse(position, last, field);
        return *this;
    }

    template<class Column, class Field>
    Columns& next(Column parse, Field& field)
    {
        if (position)
            position = parser::continuous_spaces_p(position, last);
        return column(parse, field);
    }

    Position position; // null after a failure

private:
    Position const last;
};

} // namespace

bool MasterCfParser::parse(Position first, Position last)
{
    Position position = line(first, last);
    while (Position const next = parser::lf_p(position, last))
        position = line(next, last);
    return position == last;
}

Position MasterCfParser::line(Position first, Position last)
{
    if (Position const end = module(first, last)) {
        MasterCfModuleAppender{content, info}(first, end);
        return end;
    }
    Position const comment = parser::comments_line_p(first, last);
    Position const end = comment ? comment : parser::empty_line_p(first, last);
    MasterCfRawAppender{content}(first, end);
    return end;
}

Position MasterCfParser::module(Position first, Position last)
{
    Columns columns(first, last);
    columns.column(name, info.name)
        .next(type, info.type)
        .next(answer, info.privateService)
        .next(answer, info.unprivileged)
        .next(answer, info.chroot)
        .next(wakeup, info)
        .next(number, info.maxProcesses);
    if (!columns.position)
        return nullptr;
    Position const end = command(parser::continuous_spaces_p(columns.position, last), last);
    return end ? parser::swsp_p.skip(end, last) : nullptr;
}

Position MasterCfParser::command(Position first, Position last)
{
    Position end = nullptr;
    for (Position word = first;;) {
        Position const word_end = word_p.skip(word, last);
        if (word_end == word)
            return end;
        parser::WordAppender{info.command}(word, word_end);
        end = word_end;
        word = parser::continuous_spaces_p(end, last);
    }
}

} // namespace orvek::mail::postfix
