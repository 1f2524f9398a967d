// parameter_values - what may be written into main.cf
//
// requireOneLine refuses a value with a newline or a null byte: postconf would write a parameter
// more. requireLiteral also refuses a "$", which Postfix expands. Use it for every value that does
// not come from the tool itself.
//
// Failures: PostfixConfigurationError with one sentence that names the parameter.

#ifndef MAILVEK_POSTFIX_MAIN_CF_PARAMETER_VALUES_H
#define MAILVEK_POSTFIX_MAIN_CF_PARAMETER_VALUES_H

#include <string>

namespace orvek::mail::postfix {

void requireOneLine(std::string const& name, std::string const& value);
void requireLiteral(std::string const& name, std::string const& value);

} // namespace orvek::mail::postfix

#endif
