// misc_params - the panel's own settings, from its table "misc"
//
// A setting that the panel does not have is the empty text. Failures raise mError; in the safe
// forms they are a warning on orvek::uerr instead, and the setting counts as one that the panel
// does not have.

#ifndef MAILVEK_MYSQL_MISC_PARAMS_H
#define MAILVEK_MYSQL_MISC_PARAMS_H

#include "mysql/connection.h"

#include <string>

namespace orvek::mail::restore {

std::string getStringMiscParam(std::string const& name, mysql::Connection& conn);
std::string getStringMiscParamSafe(std::string const& name, mysql::Connection& conn);

// True for the value "true", and for no other.
bool getBoolMiscParamSafe(std::string const& name, mysql::Connection& conn);

} // namespace orvek::mail::restore

#endif
