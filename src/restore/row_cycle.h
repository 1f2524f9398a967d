// row_cycle - a query of the entity walker, and what is done with each of its rows
//
// Whatever fails is a warning on orvek::uerr under the context's name, and raises nothing: a
// query gives no rows then, a row is passed over.

#ifndef MAILVEK_RESTORE_ROW_CYCLE_H
#define MAILVEK_RESTORE_ROW_CYCLE_H

#include "mysql/connection.h"

#include <functional>
#include <optional>
#include <string>

namespace orvek::mail::restore {

// False for a query that failed. What each raises is the failure of its row.
bool forEachRow(mysql::Connection& conn, std::string const& context, std::string const& query,
                std::function<void(mysql::Result::row_t const&)> const& each);

// The column of the first row, or nothing where there is none to be read.
std::optional<std::string> firstValue(mysql::Connection& conn, std::string const& context,
                                      std::string const& query, char const* column);

} // namespace orvek::mail::restore

#endif
