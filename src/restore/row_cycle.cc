#include "restore/row_cycle.h"

#include "mysql/mysql_error.h"
#include "util/uerr.h"

#include <exception>

namespace orvek::mail::restore {

using namespace orvek::mysql;

namespace {

std::optional<Result> reportedResult(Connection& conn, std::string const& context,
                                     std::string const& query)
{
    try {
        conn << query.c_str();
        return conn << Query::fetch;
    } catch (std::exception const& e) {
        uerr << "Warning: MySQL Query error on " << context << ": " << reportedText(e)
             << ", ignored" << std::endl;
        return {};
    }
}

// Fetches a row and passes it to each. False after the last row.
bool reportedRow(Result& result, Result::row_t& row, std::string const& context,
                 std::function<void(Result::row_t const&)> const& each)
{
    try {
        if (!result.fetch(&row))
            return false;
        each(row);
    } catch (std::exception const& e) {
        uerr << "Warning: MySQL Fetch Row Error on " << context << ": " << reportedText(e)
             << ", row ignored" << std::endl;
    }
    return true;
}

} // namespace

bool forEachRow(Connection& conn, std::string const& context, std::string const& query,
                std::function<void(Result::row_t const&)> const& each)
{
    std::optional<Result> result = reportedResult(conn, context, query);
    if (!result)
        return false;
    Result::row_t row;
    while (reportedRow(*result, row, context, each)) {
    }
    return true;
}

std::optional<std::string> firstValue(Connection& conn, std::string const& context,
                                      std::string const& query, char const* column)
{
    std::optional<std::string> value;
    if (std::optional<Result> result = reportedResult(conn, context, query)) {
        Result::row_t row;
        reportedRow(*result, row, context,
                    [&](Result::row_t const& first) { value = first[column]; });
    }
    return value;
}

} // namespace orvek::mail::restore
