// mailname_validators - the check of names given on the command line
//
// mailValidateExc raises std::invalid_argument for a name that mail_validate refuses. The
// exception's text is the name.

#ifndef MAILVEK_POSTFIX_DOMAINS_MAILNAME_VALIDATORS_H
#define MAILVEK_POSTFIX_DOMAINS_MAILNAME_VALIDATORS_H

#include "lib/names/mail_validation.h"

#include <string>

namespace orvek::mail::postfix::mailname_validators {

void mailValidateExc(std::string const& name, mail_validation_t type);

} // namespace orvek::mail::postfix::mailname_validators

#endif
