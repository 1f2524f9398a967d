// tool_result - how a run of postmap or postconf ended
//
// hasFailed judges a raw wait status: anything but an exit with 0 is a failure. requireSuccess
// raises PostfixConfigurationError for a failure. Its text is what the program said on its
// standard error, or "unknown error" when it said nothing.

#ifndef MAILVEK_POSTFIX_TOOLS_TOOL_RESULT_H
#define MAILVEK_POSTFIX_TOOLS_TOOL_RESULT_H

#include <string>

namespace orvek::mail::postfix {

bool hasFailed(int status);
void requireSuccess(int status, std::string const& diagnostics);

} // namespace orvek::mail::postfix

#endif
