// record_text - what may stand in a record of a map
//
// postmap reads records as lines of text, so a name with the wrong bytes would become another
// record, a comment or nothing at all. A key must not be empty, begin with "#", or hold a blank, a
// control byte, an open quote or a last backslash. A value must not hold a newline.
//
// Failures: PostfixDatabaseError with one sentence that says what is wrong. Control bytes of the
// text are made visible in it.

#ifndef MAILVEK_POSTFIX_MAPS_RECORD_TEXT_H
#define MAILVEK_POSTFIX_MAPS_RECORD_TEXT_H

#include <string_view>

namespace orvek::mail::postfix {

void requireKey(std::string_view key);
void requireValue(std::string_view value);

} // namespace orvek::mail::postfix

#endif
