// postmap_output - what the mail server's tools say on their standard error
//
// checkOutput tells whether the text is harmless. A line counts when it has the form
// "program: word: ...": it is a failure when the word is panic, fatal or error, and in strict
// mode when it is any other than warning. Lines of other forms never count.

#ifndef MAILVEK_POSTFIX_TOOLS_POSTMAP_OUTPUT_H
#define MAILVEK_POSTFIX_TOOLS_POSTMAP_OUTPUT_H

#include <string>

namespace orvek::mail::postfix {

bool checkOutput(std::string const& text, bool strict);

} // namespace orvek::mail::postfix

#endif
