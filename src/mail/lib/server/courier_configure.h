// courier_configure - settings of the Courier daemons
//
// A list of changes goes into the four files of the daemons, in etc/courier-imap below
// COURIER_IMAP_ROOT_D, and then the service is restarted, whether anything was changed or not. A
// file that cannot be opened is reported and passed over.
//
// Result: that of the restart (see lib/programs/rst_serv.h), or -1 at the first file that could not
// be replaced, with the files before it changed and the service left alone. Failures are reported
// through messlog2.
//
// A file is replaced by a temporary one beside it: it belongs to the caller then and has the mode
// 0600, whatever it was before.

#ifndef MAILVEK_MAIL_LIB_SERVER_COURIER_CONFIGURE_H
#define MAILVEK_MAIL_LIB_SERVER_COURIER_CONFIGURE_H

#include "mail/lib/server/courier_lines.h"

// See courier_lines for what a list is.
[[nodiscard]] int set_courier_params_list(EnvChange const* env);

// RELAYCLIENT, POPAUTH and SHORTNAMES are set for arguments other than 0, else removed.
// POPLOCK_TIME is set to poplockTime, in seconds, removed for 0 and left alone for a negative one.
[[nodiscard]] int set_courier_params(int relayClient, int popAuth, short poplockTime,
                                     int shortNames);

// SHORTNAMES alone.
[[nodiscard]] int set_courier_shortnames_params(int shortNames);

#endif
