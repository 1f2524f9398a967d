// text_parsers - small parsers, of which the grammar of master.cf is made
//
// A parser is called with the rest of a text, [first, last), and tells where its match ends; null
// says that there is none. A match is always the longest one, and nothing is skipped unasked.
// Each takes time by the length of what it looked at, and none calls itself.

#ifndef MAILVEK_POSTFIX_MASTER_CF_TEXT_PARSERS_H
#define MAILVEK_POSTFIX_MASTER_CF_TEXT_PARSERS_H

#include "postfix/master_cf/command_words.h"

#include <array>

namespace orvek::parser {

using Position = char const*;

// One byte of a set. In its notation a "-" between two bytes makes a range of them, and one at
// either end stands for itself.
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

    // Behind as many of these bytes as there are; there may be none.
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

// A comment, with blanks in front of it.
struct comments_line_parser
{
    Position operator()(Position first, Position last) const;
};

// What separates columns and words: blanks and a comment, and where the line ends there, any
// number of blank and comment lines and the indentation of the line behind them. When that line
// is not indented, the match ends in front of the first line end. It may be nothing at all.
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
