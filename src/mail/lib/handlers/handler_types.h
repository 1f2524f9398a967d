// handler_types - which mail a handler is for
//
// A handler is for one sender, recipient, sender's domain or recipient's domain, which is its
// value; or for all mail, without a value.

#ifndef MAILVEK_MAIL_LIB_HANDLERS_HANDLER_TYPES_H
#define MAILVEK_MAIL_LIB_HANDLERS_HANDLER_TYPES_H

#include <cstddef>

// The texts as they are stored. The last entry is null.
extern char const* const handler_types[];

constexpr std::size_t global_handler_type = 4;
constexpr std::size_t no_handler_type = 65535;

// The index of the type, in any case; no_handler_type for null, "" and an unknown type.
std::size_t find_handler_type(char const* type);

#endif
