// handler_lookup - finds handlers
//
// get_handler_name walks the descriptors in directory order. It returns the first handler whose
// full name contains the template, whose hook and type are equal to those given, and whose value
// is typeName in any case. A global handler matches any typeName. So a template that is part of
// another handler's name may find that handler, and a type in the wrong case finds none.
//
// Result: the handler's full name, which the caller frees. Null when there is none. Null too,
// reported through orvek_log, for a missing or invalid argument, for a store that cannot be read,
// and at the first possible match with a missing or unreadable parameter: the descriptors after it
// are not looked at.
//
// mail_handler_check_all: 1 when a handler is active for an address at a hook, 0 when none is, -1,
// reported through orvek_log, on failure.
//
// No command calls these; they are for callers to come: mail_handler_check_all.

#ifndef MAILVEK_MAIL_LIB_HANDLERS_HANDLER_LOOKUP_H
#define MAILVEK_MAIL_LIB_HANDLERS_HANDLER_LOOKUP_H

[[nodiscard]] char* get_handler_name(char const* name_template, char const* type,
                                     char const* typeName, char const* hook);

int mail_handler_check_all(char const* value, char const* hook);

#endif
