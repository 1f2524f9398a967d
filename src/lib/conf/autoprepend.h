// autoprepend - process-wide access to the product configuration
//
// Every path that the tool builds begins with a value from /etc/orv/orv.conf. The first lookup
// loads the file. It is loaded once: later changes are not seen. A missing or unreadable file is
// not fatal: each lookup tries again and reports again.
//
// All returned strings belong to this room and live until the process ends. One thread only.
//
// No command calls these; they are for callers to come: orvConfGetDefault.

#ifndef MAILVEK_LIB_CONF_AUTOPREPEND_H
#define MAILVEK_LIB_CONF_AUTOPREPEND_H

#include "lib/conf/orv_conf_table.h"

#include <array>

struct conf_data;

// The loaded file; null until it has been loaded. Never freed.
extern conf_data* theOrvConfHash;
// The values that have been looked up by index, null for those that the file lacks. They point
// into theOrvConfHash. arrayInitialized remembers that the array has been zeroed.
extern std::array<char const*, orv_conf_var_count> theOrvConfArray;
extern int arrayInitialized;

// Loads the file unless it is loaded. Returns 0, or -1 after a failure. The reader reports the
// failure, or messlog2 when there is no memory for the first step.
int autoprepend();

// The value in the file, or null. No default is applied.
char const* orvConfGet(char const* name);
// The same by index, through the cache. The index is not checked.
char const* orvConfGetByIndex(OrvConfVarIndexT i);

// The value in the file, or the default. Never null for an index of the table.
char const* orvConfGetDefaultByIndex(OrvConfVarIndexT i);
// The same by name. A name that the table lacks gives null and is reported through messlog2,
// even if the file has it.
char const* orvConfGetDefault(char const* name);

#endif
