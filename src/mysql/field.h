// field - one column of a row of the panel's database, as text
//
// A NULL of the database and the empty text are one value, the empty text. The conversions to
// numbers take the whole text or none of it: an optional sign and digits, without blanks, of a
// value that the type holds. Anything else, the empty text too, raises mError.

#ifndef MAILVEK_MYSQL_FIELD_H
#define MAILVEK_MYSQL_FIELD_H

#include <string>
#include <utility>

namespace orvek::mysql {

class Field
{
public:
    explicit Field(std::string text_) : text(std::move(text_)) {}

    // Not explicit: a column is read by initialising a value of the type that it is read as.
    operator long() const;
    operator int() const;
    operator short() const;
    operator std::string const&() const { return text; }

private:
    std::string text;
};

} // namespace orvek::mysql

#endif
