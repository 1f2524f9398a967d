// row_cycle - runs a query of the entity walker and visits its rows
//
// A failure raises nothing. It is a warning on orvek::uerr that names the context; a failed query
// gives no rows, a failed row is skipped.
//
// No command calls these; they are for callers to come: firstValue, forEachRow.

#ifndef MAILVEK_RESTORE_ROW_CYCLE_H
#define MAILVEK_RESTORE_ROW_CYCLE_H

#include "mysql/connection.h"

#include <functional>
#include <optional>
#include <string>

namespace orvek::mail::restore {

// False for a failed query. An exception from each is the failure of that row.
bool forEachRow(mysql::Connection& conn, std::string const& context, std::string const& query,
                std::function<void(mysql::Result::row_t const&)> const& each);

// The column of the first row, or nothing when it cannot be read.
std::optional<std::string> firstValue(mysql::Connection& conn, std::string const& context,
                                      std::string const& query, char const* column);

} // namespace orvek::mail::restore

#endif
