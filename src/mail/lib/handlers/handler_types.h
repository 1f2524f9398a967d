// handler_types - the kinds of mail that a handler can be for
//
// A handler is for the mail of one sender, recipient, sender's domain or recipient's domain,
// which is the handler's value, or for all mail, which needs none.

#ifndef MAILVEK_MAIL_LIB_HANDLERS_HANDLER_TYPES_H
#define MAILVEK_MAIL_LIB_HANDLERS_HANDLER_TYPES_H

#include <cstddef>

// The texts, as they are stored; the last entry is null.
extern char const* const handler_types[];

constexpr std::size_t global_handler_type = 4;
constexpr std::size_t no_handler_type = 65535;

// The index of the type, in any case of letters; no_handler_type for null, for "" and for an
// unknown one.
std::size_t find_handler_type(char const* type);

#endif
