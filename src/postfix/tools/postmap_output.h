// postmap_output - what Postfix's tools say on their standard error
//
// checkOutput returns true for a harmless text. A line is judged when it has the form
// "program: word: ...". It is a failure when the word is panic, fatal or error, and in strict
// mode when it is anything but warning. A line of another form is harmless.

#ifndef MAILVEK_POSTFIX_TOOLS_POSTMAP_OUTPUT_H
#define MAILVEK_POSTFIX_TOOLS_POSTMAP_OUTPUT_H

#include <string>

namespace orvek::mail::postfix {

bool checkOutput(std::string const& text, bool strict);

} // namespace orvek::mail::postfix

#endif
