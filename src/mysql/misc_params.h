// misc_params - the settings of the panel, from its table "misc"
//
// A missing setting reads as the empty text. Failures raise mError. The safe forms print a warning
// on orvek::uerr instead and treat the setting as missing.

#ifndef MAILVEK_MYSQL_MISC_PARAMS_H
#define MAILVEK_MYSQL_MISC_PARAMS_H

#include "mysql/connection.h"

#include <string>

namespace orvek::mail::restore {

std::string getStringMiscParam(std::string const& name, mysql::Connection& conn);
std::string getStringMiscParamSafe(std::string const& name, mysql::Connection& conn);

// True only for the value "true".
bool getBoolMiscParamSafe(std::string const& name, mysql::Connection& conn);

} // namespace orvek::mail::restore

#endif
