// result - the rows of a query
//
// The rows are stored in the client, so any number of results may be alive at once on one
// connection. Each must be destroyed before its connection.

#ifndef MAILVEK_MYSQL_RESULT_H
#define MAILVEK_MYSQL_RESULT_H

#include "lib/panel/dbconnect.h"
#include "mysql/field.h"

#include <mysql.h>

#include <functional>
#include <map>
#include <string>
#include <string_view>

namespace orvek::mysql {

class Result
{
public:
    // The columns of one row, sorted by name.
    class row_t : public std::map<std::string, Field, std::less<>>
    {
    public:
        // An unknown name raises mError.
        Field const& operator[](std::string_view name) const;
    };

    // Takes ownership of stored, which must not be null.
    explicit Result(MYSQL_RES* stored);

    // Fills row with the next row; false at the end, with row as it was. Two columns of one name
    // raise mError: rename one with AS in the statement. That row is lost; the next call gives the
    // row after it.
    bool fetch(row_t* row);

private:
    MysqlResult result;
    MYSQL_FIELD const* fields; // owned by result
};

} // namespace orvek::mysql

#endif
