// handler_presence - whether a name has handlers
//
// True when the value of a handler is exactly name. A descriptor or store that cannot be read is
// reported through orvek_log and counts as none.

#ifndef MAILVEK_MAIL_LIB_HANDLERS_HANDLER_PRESENCE_H
#define MAILVEK_MAIL_LIB_HANDLERS_HANDLER_PRESENCE_H

[[nodiscard]] bool has_handler_of(char const* name);

#endif
