// handler_mass_control - one action on many handlers
//
// mass_control_handler_queue works on the handlers with exactly this template, or on all handlers
// for "all". mass_control_handler_by_mailname works on the handlers whose value is exactly name. A
// name without "@" is a domain, and the handlers of all addresses in it count too. newName is the
// value or the domain of the copies for HOOK_CLONE and HOOK_MOVE, null otherwise. Do not use with
// HOOK_CHECK: its result 1 would count as an error.
//
// The handlers are listed before the first one is changed. A failure, such as a damaged descriptor,
// does not stop the others. Result: 0; -1 when any failed, or when the store could not be read, and
// then none is changed. All failures are reported through orvek_log.

#ifndef MAILVEK_MAIL_LIB_HANDLERS_HANDLER_MASS_CONTROL_H
#define MAILVEK_MAIL_LIB_HANDLERS_HANDLER_MASS_CONTROL_H

#include "mail/lib/handlers/handler_control.h"

int mass_control_handler_queue(char const* name_template, handler_control_t action);

int mass_control_handler_by_mailname(char const* name, char const* newName,
                                     handler_control_t action);

#endif
