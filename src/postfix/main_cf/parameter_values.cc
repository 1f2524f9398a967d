#include "postfix/main_cf/parameter_values.h"

#include "util/errors.h"

namespace orvek::mail::postfix {

void requireOneLine(std::string const& name, std::string const& value)
{
    using namespace std::string_literals;
    if (value.find_first_of("\n\0"s) != std::string::npos)
        throw PostfixConfigurationError("the value of " + name + " must not hold a newline");
}

void requireLiteral(std::string const& name, std::string const& value)
{
    requireOneLine(name, value);
    if (value.find('$') != std::string::npos)
        throw PostfixConfigurationError("the value '" + value + "' for " + name +
                                        " must not hold a '$'");
}

} // namespace orvek::mail::postfix
