// field - one column of a row of the panel's database, as text
//
// NULL reads as the empty text. A conversion to a number needs the whole text: an optional sign and
// digits, without blanks, within the range of the type. Any other text, also the empty one, raises
// mError.

#ifndef MAILVEK_MYSQL_FIELD_H
#define MAILVEK_MYSQL_FIELD_H

#include <string>
#include <utility>

namespace orvek::mysql {

class Field
{
public:
    explicit Field(std::string text_) : text(std::move(text_)) {}

    // Not explicit: the type of the variable that a column is read into chooses the conversion.
    operator long() const;
    operator int() const;
    operator short() const;
    operator std::string const&() const { return text; }

private:
    std::string text;
};

} // namespace orvek::mysql

#endif
