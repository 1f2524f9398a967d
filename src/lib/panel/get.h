// get - single values from the panel's database
//
// my is an open connection or, where not stated otherwise, null: the function then makes one of
// its own by db_connect and closes it. Arguments are texts, escaped for the connection.
//
// Result: a number, or a text in a static buffer of 4096 bytes. A text is cut to what the buffer
// holds, and the next call of the same function overwrites it. A failure gives null, or 0 for a
// number, and has been reported through messlog2. Where not stated otherwise a missing row and a
// NULL value give the same without a report. errno stays as the failing call left it.

#ifndef MAILVEK_LIB_PANEL_GET_H
#define MAILVEK_LIB_PANEL_GET_H

#include "lib/panel/get_client.h" // IWYU pragma: export
#include "lib/panel/get_domain.h" // IWYU pragma: export
#include "lib/panel/get_param.h"  // IWYU pragma: export

#endif
