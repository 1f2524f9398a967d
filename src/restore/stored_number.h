// stored_number - a number that the panel stores as text
//
// A text that is not a number, or is out of the type's range, gives nothing. The warning on
// orvek::uerr is that text between before and after.

#ifndef MAILVEK_RESTORE_STORED_NUMBER_H
#define MAILVEK_RESTORE_STORED_NUMBER_H

#include "mysql/field.h"
#include "mysql/mysql_error.h"
#include "util/uerr.h"

#include <optional>
#include <string>

namespace orvek::mail::restore {

struct BadNumberWarning
{
    char const* before;
    char const* after;

    void operator()(std::string const& value) const
    {
        uerr << before << value << after << std::endl;
    }
};

template<class Number>
std::optional<Number> storedNumber(std::string const& value, BadNumberWarning const& warning)
{
    try {
        return static_cast<Number>(mysql::Field(value));
    } catch (mysql::mError const&) {
        warning(value);
        return {};
    }
}

} // namespace orvek::mail::restore

#endif
