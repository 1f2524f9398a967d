#include "mysql/misc_params.h"

#include "mysql/mysql_error.h"
#include "util/uerr.h"

namespace orvek::mail::restore {

using namespace orvek::mysql;

std::string getStringMiscParam(std::string const& name, Connection& conn)
{
    conn << "SELECT    val  FROM misc    WHERE param='" << Query::value << name.c_str() << "'";
    Result result = conn << Query::fetch;
    Result::row_t row;
    return result.fetch(&row) ? row["val"] : std::string();
}

std::string getStringMiscParamSafe(std::string const& name, Connection& conn)
{
    try {
        return getStringMiscParam(name, conn);
    } catch (mError const& e) {
        // Deliberate: the text says "Mail Authentication Type" for every parameter.
        uerr << "Warning: MySQL Error on Mail Authentication Type query: " << reportedText(e)
             << ", ignored" << std::endl;
        return {};
    }
}

bool getBoolMiscParamSafe(std::string const& name, Connection& conn)
{
    return getStringMiscParamSafe(name, conn) == "true";
}

} // namespace orvek::mail::restore
