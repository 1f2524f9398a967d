#include "postfix/domains/mailname_validators.h"

#include <stdexcept>

namespace orvek::mail::postfix::mailname_validators {

void mailValidateExc(std::string const& name, mail_validation_t type)
{
    if (mail_validate(name.c_str(), type) == 0)
        throw std::invalid_argument(name);
}

} // namespace orvek::mail::postfix::mailname_validators
