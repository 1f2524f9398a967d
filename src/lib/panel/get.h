// get - single values from the panel's database
//
// my is an open connection or, where not stated otherwise, null: then the function makes one of
// its own by db_connect and closes it. Arguments are pasted into the statement as they are,
// without escaping.
//
// Result: a text in a static buffer of 4096 bytes, cut to what it holds, which the next call of
// the same function overwrites; or a number. Null, or 0 for a number, after a failure, which has
// been reported through messlog2, and, where not stated otherwise, without a report when there is
// no such row or its value is NULL. errno stays as the failing call left it.

#ifndef MAILVEK_LIB_PANEL_GET_H
#define MAILVEK_LIB_PANEL_GET_H

#include "lib/panel/get_client.h" // IWYU pragma: export
#include "lib/panel/get_domain.h" // IWYU pragma: export
#include "lib/panel/get_param.h"  // IWYU pragma: export

#endif
