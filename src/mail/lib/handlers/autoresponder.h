// autoresponder - turns autoresponders on and off
//
// An autoresponder is a handler with the template "autoresponder" for one recipient.
// autoresponder_action works on each mailname of one list in each domain of another. Commas or
// blanks separate the names; a domain may be in UTF-8. HOOK_ENABLE adds missing handlers,
// HOOK_DISABLE removes existing ones, any other action does nothing.
//
// Result: 0, or -1, reported through orvek_log. After the failure of one handler the others are
// still changed. A domain that cannot be converted, or an address of more than 254 characters,
// stops the work; what was done before stays.

#ifndef MAILVEK_MAIL_LIB_HANDLERS_AUTORESPONDER_H
#define MAILVEK_MAIL_LIB_HANDLERS_AUTORESPONDER_H

#include "mail/lib/handlers/handler_control.h"

int autoresponder_action(char const* mailname, char const* maildomain, handler_control_t action);

#endif
