// record_filters - rewrite the records of a map while its dump arrives
//
// An element filter is a small value object. bool operator()(std::string& element) const changes
// the element in place and returns false to drop it. A record filter has the same call for one
// line of a dump without its newline: key, blanks or tabs, value.
//
// KeyValueFilter applies one filter to the key and one to the whole value. ValueListFilter can take
// the latter's place: it applies an element filter to each element of the value, and refuses a
// value that loses all its elements. ElementsFilter uses one element filter for the key and for the
// elements of the value. A refused key or value drops the record.
//
// A kept line is the key, one space and the value without blanks and tabs around it; a list has
// ", " between its elements. This holds even where no filter changed anything. Bytes are compared
// exactly: Postfix folds keys to lower case and keeps values as written, and a filter rewrites only
// what matches byte for byte.
//
// A line without a blank or tab is dropped with a note on std::clog, and the run goes on. A line
// without a value is dropped silently.
//
// A key that a filter changed, and every value, must be as record_text.h says; its exception ends
// the run otherwise.
//
// Filters do not own what their pointers name; it must outlive the run.

#ifndef MAILVEK_POSTFIX_MAPS_RECORD_FILTERS_H
#define MAILVEK_POSTFIX_MAPS_RECORD_FILTERS_H

#include "postfix/maps/record_text.h"

#include <algorithm>
#include <cctype>
#include <cstddef>
#include <string>
#include <string_view>
#include <unordered_map>

namespace orvek::mail::postfix::database {

// Where the key of the line ends. npos, with the note, for a line without a blank or tab.
std::size_t findKeyEnd(std::string const& line);

// The value after the key that ends at keyEnd; empty for a line without a value.
std::string_view valueBehind(std::string_view line, std::size_t keyEnd);

// "," and whatever isspace accepts. Bytes above 127 separate nothing in the C locale.
inline bool isListSeparator(char byte)
{
    // Visible ASCII is no space in any locale. Calling isspace for it would cost more than the
    // rest of the work on a value.
    if (byte > ' ' && byte <= '~')
        return byte == ',';
    return std::isspace(static_cast<unsigned char>(byte)) != 0;
}

// Replaces an element that equals from. A longer value stays, even one that only adds a "/".
struct ReplaceElementFilterRef
{
    std::string const* from;
    std::string const* to;

    bool operator()(std::string& element) const;
};

// New strings by the old ones.
using Replacements = std::unordered_map<std::string, std::string>;

// Replaces an element that equals any of the old strings. A new string is not replaced again.
struct ReplaceElementsFilterRef
{
    Replacements const* replacements;

    bool operator()(std::string& element) const;
};

template<class KeyFilter, class ValueFilter>
struct KeyValueFilter
{
    KeyFilter keyFilter;
    ValueFilter valueFilter;

    bool operator()(std::string& line) const
    {
        std::size_t const keyEnd = findKeyEnd(line);
        if (keyEnd == std::string::npos)
            return false;
        std::string key(line, 0, keyEnd);
        std::string value(valueBehind(line, keyEnd));
        if (!keyFilter(key) || value.empty() || !valueFilter(value))
            return false;
        // Only what a filter made: a record that is in the map must not block every rewrite.
        if (line.compare(0, keyEnd, key) != 0)
            requireKey(key);
        requireValue(value);
        line.assign(key).append(1, ' ').append(value);
        return true;
    }
};

// Deliberate: quotes have no meaning here. A quoted element with a blank in it is two elements.
template<class ElementFilter>
struct ValueListFilter
{
    ElementFilter elementFilter;

    static bool isListSep(char byte) { return isListSeparator(byte); }

    bool operator()(std::string& value) const
    {
        std::string list;
        list.reserve(value.size());
        std::string element;
        bool kept = false;
        auto const end = value.cend();
        auto first = std::find_if_not(value.cbegin(), end, isListSep);
        while (first != end) {
            auto const last = std::find_if(first, end, isListSep);
            element.assign(first, last);
            if (elementFilter(element)) {
                list.append(kept ? ", " : "").append(element);
                kept = true;
            }
            first = std::find_if_not(last, end, isListSep);
        }
        value.swap(list);
        return kept;
    }
};

template<class ElementFilter>
struct ElementsFilter : KeyValueFilter<ElementFilter, ValueListFilter<ElementFilter>>
{
    explicit ElementsFilter(ElementFilter const& filter)
    {
        this->keyFilter = filter;
        this->valueFilter.elementFilter = filter;
    }
};

} // namespace orvek::mail::postfix::database

#endif
