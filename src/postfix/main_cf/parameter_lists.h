// parameter_lists - parameters of main.cf that hold several values
//
// A simple list is one of words: spaces, tabs and commas separate them, and several in a row
// count as one. A separator at either end of the text has an empty word beyond it. A compound
// list is one of clauses of several words, "check_client_access hash:/x": commas separate them,
// the white space around a clause is not part of it, and empty clauses do not count. An empty
// text is an empty list of either kind.
//
// A list is written with ", " between the elements.

#ifndef MAILVEK_POSTFIX_MAIN_CF_PARAMETER_LISTS_H
#define MAILVEK_POSTFIX_MAIN_CF_PARAMETER_LISTS_H

#include <string>
#include <string_view>
#include <vector>

namespace orvek::mail::postfix {

std::vector<std::string> splitSimpleList(std::string_view text);
std::vector<std::string> splitCompoundList(std::string_view text);
std::string joinList(std::vector<std::string> const& elements);

// The text without the white space at its ends: space, tab, line feed, vertical tab, form feed
// and carriage return.
std::string_view trimmed(std::string_view text);

} // namespace orvek::mail::postfix

#endif
