// result - what a query gave, row by row
//
// The rows lie on the client's side, so that any number of results may be alive at once on one
// connection; each must die before its connection does.

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
    // The columns of one row by name, in the order of the names.
    class row_t : public std::map<std::string, Field, std::less<>>
    {
    public:
        // A name that is not in the result raises mError.
        Field const& operator[](std::string_view name) const;
    };

    // Owns stored from here on; it is not null.
    explicit Result(MYSQL_RES* stored);

    // Fills row with the next one, or gives false at the end and leaves row as it was. Two
    // columns of one name raise mError: tell them apart with AS in the statement. The row is
    // lost then, and the next call gives the one after it.
    bool fetch(row_t* row);

private:
    MysqlResult result;
    MYSQL_FIELD const* fields; // the result's own
};

} // namespace orvek::mysql

#endif
