// handler_mass_control - one action on many handlers
//
// mass_control_handler_queue works on the handlers whose template is exactly this, or on all of
// them for "all". mass_control_handler_by_mailname works on the handlers whose value is exactly
// name, and, if name holds no "@" and so is a domain, on those of all addresses in it; newName
// is the value or the domain of the copies for HOOK_CLONE and HOOK_MOVE, null otherwise. Not
// for HOOK_CHECK, whose 1 would count as an error.
//
// The handlers are those that are there at the beginning. A failure, a damaged descriptor for
// one, does not keep the others from being worked on. Result: 0, or -1 when there was any or
// the store could not be opened or read; then none is worked on. All are reported through
// orvek_log.

#ifndef MAILVEK_MAIL_LIB_HANDLERS_HANDLER_MASS_CONTROL_H
#define MAILVEK_MAIL_LIB_HANDLERS_HANDLER_MASS_CONTROL_H

#include "mail/lib/handlers/handler_control.h"

int mass_control_handler_queue(char const* name_template, handler_control_t action);

int mass_control_handler_by_mailname(char const* name, char const* newName,
                                     handler_control_t action);

#endif
