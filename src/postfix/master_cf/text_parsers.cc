#include "postfix/master_cf/text_parsers.h"

#include <cstring>

namespace orvek::parser {

namespace {

Position skipBlanksAndComment(Position first, Position last)
{
    Position const blanks = empty_line_p(first, last);
    Position const comment = comments_p(blanks, last);
    return comment ? comment : blanks;
}

// Skips from a line end to the text of the next line that is neither blank nor a comment. Null when
// that line is not indented.
Position findContinuation(Position first, Position last)
{
    Position line = lf_p(first, last);
    if (!line)
        return nullptr;
    while (Position const next = lf_p(skipBlanksAndComment(line, last), last))
        line = next;
    Position const text = swsp_p.skip(line, last);
    return text == line ? nullptr : text;
}

} // namespace

Position empty_line_parser::operator()(Position first, Position last) const
{
    return swsp_p.skip(first, last);
}

Position comments_parser::operator()(Position first, Position last) const
{
    if (first == last || *first != '#')
        return nullptr;
    void const* const end = memchr(first, '\n', static_cast<size_t>(last - first));
    return end ? static_cast<Position>(end) : last;
}

Position comments_line_parser::operator()(Position first, Position last) const
{
    return comments_p(empty_line_p(first, last), last);
}

Position continuous_spaces_parser::operator()(Position first, Position last) const
{
    Position const end = skipBlanksAndComment(first, last);
    Position const continuation = findContinuation(end, last);
    return continuation ? continuation : end;
}

} // namespace orvek::parser
