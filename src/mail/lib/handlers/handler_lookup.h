// handler_lookup - finding handlers
//
// get_handler_name walks the descriptors in directory order for the first handler whose whole
// name contains the template, whose hook and type are exactly these, and whose value is
// typeName in any case of letters. typeName does not count for a global handler. So a template
// that is part of another handler's name may find that one, and a type in other letters than
// the stored ones finds none.
//
// Result: the handler's full name, which the caller frees. Null when there is none, and,
// reported through orvek_log, for an argument that is missing or invalid, for a store that
// cannot be opened or read to its end, and as soon as a descriptor that might match lacks a
// parameter or has one that cannot be read: whatever stands behind it is not looked at.
//
// mail_handler_check_all tells whether any handler is active for an address at a hook: 1 if
// so, 0 if none, -1, reported through orvek_log, on failure.

#ifndef MAILVEK_MAIL_LIB_HANDLERS_HANDLER_LOOKUP_H
#define MAILVEK_MAIL_LIB_HANDLERS_HANDLER_LOOKUP_H

[[nodiscard]] char* get_handler_name(char const* name_template, char const* type,
                                     char const* typeName, char const* hook);

int mail_handler_check_all(char const* value, char const* hook);

#endif
