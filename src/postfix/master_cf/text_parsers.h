// text_parsers - the small parsers of which the grammar of master.cf is made
//
// A parser takes the rest of a text, [first, last), and returns where its match ends, or null when
// there is no match. A match is always the longest one, and nothing is skipped implicitly. Each
// takes time proportional to what it looked at, and none calls itself.

#ifndef MAILVEK_POSTFIX_MASTER_CF_TEXT_PARSERS_H
#define MAILVEK_POSTFIX_MASTER_CF_TEXT_PARSERS_H

#include "postfix/master_cf/command_words.h"

#include <array>

namespace orvek::parser {

using Position = char const*;

// One byte of a set. In the set's notation a "-" between two bytes makes a range; a "-" at either
// end stands for itself.
class char_parser
{
public:
    explicit consteval char_parser(char const* set)
    {
        for (; *set; ++set) {
            if (set[1] == '-' && set[2]) {
                addRange(set[0], set[2]);
                set += 2;
            } else {
                addRange(*set, *set);
            }
        }
    }

    // The bytes of both sets.
    friend consteval char_parser operator|(char_parser a, char_parser const& b)
    {
        for (size_t i = 0; i < a.contains.size(); ++i)
            a.contains[i] = a.contains[i] || b.contains[i];
        return a;
    }

    Position operator()(Position first, Position last) const
    {
        return first != last && contains[static_cast<unsigned char>(*first)] ? first + 1 : nullptr;
    }

    // The end of a run of these bytes, which may be empty.
    Position skip(Position first, Position last) const
    {
        while (first != last && contains[static_cast<unsigned char>(*first)])
            ++first;
        return first;
    }

private:
    consteval void addRange(char from, char to)
    {
        for (int byte = static_cast<unsigned char>(from); byte <= static_cast<unsigned char>(to);
             ++byte)
            contains[static_cast<size_t>(byte)] = true;
    }

    std::array<bool, 256> contains = {};
};

inline constexpr char_parser lf_p("\n");
inline constexpr char_parser cr_p("\r");
inline constexpr char_parser sp_p(" ");
inline constexpr char_parser tab_p("\t");
inline constexpr char_parser swsp_p("\t \r");

// Blanks, or nothing at all.
struct empty_line_parser
{
    Position operator()(Position first, Position last) const;
};

// From "#" to the end of the line.
struct comments_parser
{
    Position operator()(Position first, Position last) const;
};

// A comment, with blanks before it.
struct comments_line_parser
{
    Position operator()(Position first, Position last) const;
};

// What separates columns and words. It is blanks and a comment. If the line ends there, any number
// of blank and comment lines follow, and the indentation of the next line. When that line is not
// indented, the match ends before the first line end. The match may be empty.
struct continuous_spaces_parser
{
    Position operator()(Position first, Position last) const;
};

inline constexpr empty_line_parser empty_line_p;
inline constexpr comments_parser comments_p;
inline constexpr comments_line_parser comments_line_p;
inline constexpr continuous_spaces_parser continuous_spaces_p;

// Adds a word that has matched to a command.
struct WordAppender
{
    mail::postfix::CommandWords& words;

    void operator()(Position first, Position last) const { words.push_back({first, last}); }
};

} // namespace orvek::parser

#endif
