#include "mysql/field.h"

#include "mysql/mysql_error.h"

#include <boost/lexical_cast.hpp>

namespace orvek::mysql {

namespace {

template<class Number>
Number converted(std::string const& text)
{
    try {
        return boost::lexical_cast<Number>(text);
    } catch (boost::bad_lexical_cast const& e) {
        throw mError(e.what());
    }
}

} // namespace

Field::operator long() const
{
    return converted<long>(text);
}

Field::operator int() const
{
    return converted<int>(text);
}

Field::operator short() const
{
    return converted<short>(text);
}

} // namespace orvek::mysql
