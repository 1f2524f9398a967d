// courier_configure - settings of the Courier daemons
//
// Writes a list of changes to the four files of the daemons, in etc/courier-imap below
// COURIER_IMAP_ROOT_D, and restarts the service, even if nothing changed. A file that cannot be
// opened is reported and skipped.
//
// Result: that of the restart (see lib/programs/rst_serv.h); or -1 at the first file that cannot be
// replaced, with the files before it changed and the service not restarted. Failures are reported
// through messlog2.
//
// A temporary file in the same directory replaces the file. The new file belongs to the caller and
// has mode 0600; the old owner and mode are lost.

#ifndef MAILVEK_MAIL_LIB_SERVER_COURIER_CONFIGURE_H
#define MAILVEK_MAIL_LIB_SERVER_COURIER_CONFIGURE_H

#include "mail/lib/server/courier_lines.h"

// See courier_lines for what a list is.
[[nodiscard]] int set_courier_params_list(EnvChange const* env);

// Sets RELAYCLIENT, POPAUTH and SHORTNAMES for arguments other than 0, and removes them for 0. Sets
// POPLOCK_TIME to poplockTime, in seconds; 0 removes it, a negative value leaves it alone.
[[nodiscard]] int set_courier_params(int relayClient, int popAuth, short poplockTime,
                                     int shortNames);

// SHORTNAMES alone.
[[nodiscard]] int set_courier_shortnames_params(int shortNames);

#endif
