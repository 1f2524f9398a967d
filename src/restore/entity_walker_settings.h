// entity_walker_settings - the part of the walk that reads the server's settings
//
// Passes blocking lists, submission, size limit, relaying and short names to their callbacks, in
// this order. Failures are handled as in restore/entity_walker.h.
//
// No command calls these; they are for callers to come: restoreSettings.

#ifndef MAILVEK_RESTORE_ENTITY_WALKER_SETTINGS_H
#define MAILVEK_RESTORE_ENTITY_WALKER_SETTINGS_H

#include "mysql/connection.h"
#include "restore/entity_walker.h"

namespace orvek::mail::restore {

void restoreSettings(MailsrvEntitiesCallbacks& callbacks, mysql::Connection& conn);

} // namespace orvek::mail::restore

#endif
