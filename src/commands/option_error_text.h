// option_error_text - the message for a bad command line
//
// The text is the option library's own. The library's what() never returns when a word of the
// command line holds the name of a placeholder, such as "%value%". optionErrorText returns, with
// the word as it was given. It changes the error: call it once, as the last use of the error.

#ifndef MAILVEK_COMMANDS_OPTION_ERROR_TEXT_H
#define MAILVEK_COMMANDS_OPTION_ERROR_TEXT_H

#include <boost/program_options/errors.hpp>

#include <string>

namespace orvek::mail::postfix::mailvek_commands {

std::string optionErrorText(boost::program_options::error& e);

} // namespace orvek::mail::postfix::mailvek_commands

#endif
