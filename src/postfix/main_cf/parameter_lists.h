// parameter_lists - parameters of main.cf that hold several values
//
// A simple list holds words. Spaces, tabs and commas separate them, and several in a row count as
// one. A separator at either end of the text has an empty word beyond it. A compound list holds
// clauses of several words, "check_client_access hash:/x". Commas separate them, white space
// around a clause is not part of it, and empty clauses do not count. An empty text is an empty
// list of either kind.
//
// A list is written with ", " between the elements.

#ifndef MAILVEK_POSTFIX_MAIN_CF_PARAMETER_LISTS_H
#define MAILVEK_POSTFIX_MAIN_CF_PARAMETER_LISTS_H

#include <string>
#include <vector>

namespace orvek::mail::postfix {

std::vector<std::string> splitSimpleList(std::string const& text);
std::vector<std::string> splitCompoundList(std::string const& text);
std::string joinList(std::vector<std::string> const& elements);

} // namespace orvek::mail::postfix

#endif
