// autoresponder - turning autoresponders on and off
//
// An autoresponder is a handler of the template "autoresponder" for one recipient.
// autoresponder_action works on each mailname of one list in each domain of another; the lists
// are separated by commas or blanks, and a domain may be in UTF-8. HOOK_ENABLE adds the
// handlers that are missing, HOOK_DISABLE removes those that are there, any other action does
// nothing.
//
// Result: 0, or -1, reported through orvek_log. The failure of one handler leaves the others
// to be worked on; a domain that cannot be converted and an address of more than 254
// characters end the work with what has been done.

#ifndef MAILVEK_MAIL_LIB_HANDLERS_AUTORESPONDER_H
#define MAILVEK_MAIL_LIB_HANDLERS_AUTORESPONDER_H

#include "mail/lib/handlers/handler_control.h"

int autoresponder_action(char const* mailname, char const* maildomain, handler_control_t action);

#endif
