// entity_walker_settings - the part of the walk that is of the mail server as a whole
//
// Hands blocking lists, submission, size limit, relaying and short names to their callbacks, in
// this order. Failures are as in restore/entity_walker.h.

#ifndef MAILVEK_RESTORE_ENTITY_WALKER_SETTINGS_H
#define MAILVEK_RESTORE_ENTITY_WALKER_SETTINGS_H

#include "mysql/connection.h"
#include "restore/entity_walker.h"

namespace orvek::mail::restore {

void restoreSettings(MailsrvEntitiesCallbacks& callbacks, mysql::Connection& conn);

} // namespace orvek::mail::restore

#endif
