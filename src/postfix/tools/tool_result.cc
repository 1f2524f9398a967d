#include "postfix/tools/tool_result.h"

#include "util/errors.h"

#include <sys/wait.h>

namespace orvek::mail::postfix {

bool hasFailed(int status)
{
    return !WIFEXITED(status) || WEXITSTATUS(status) != 0;
}

void requireSuccess(int status, std::string const& diagnostics)
{
    if (hasFailed(status))
        throw PostfixConfigurationError(diagnostics.empty() ? "unknown error" : diagnostics);
}

} // namespace orvek::mail::postfix
