// autoprepend - process-wide access to the product configuration
//
// Every path that the tool builds is anchored in /etc/orv/orv.conf. The file is loaded at the
// first lookup and, once it has been read well, never again: a later change of it is not
// seen. A missing or unreadable file is not fatal; nothing remembers the failure, so each
// lookup tries again, and the reader reports again.
//
// All returned strings belong to this layer and live until the process ends. For one thread.

#ifndef MAILVEK_LIB_CONF_AUTOPREPEND_H
#define MAILVEK_LIB_CONF_AUTOPREPEND_H

#include "lib/conf/orv_conf_table.h"

#include <array>

struct conf_data;

// The loaded file; null until it has been loaded. Never freed.
extern conf_data* theOrvConfHash;
// Values of the file that have been looked up by index, null where there was none. They point
// into theOrvConfHash. Zeroed once, which arrayInitialized remembers.
extern std::array<char const*, orv_conf_var_count> theOrvConfArray;
extern int arrayInitialized;

// Loads the file. 0 when it is loaded, now or before; -1 after a failure, reported by the
// reader, or by messlog2 when there is no memory for the first step.
int autoprepend();

// The value in the file, or null. No default is applied.
char const* orvConfGet(char const* name);
// The same by index, which is not range-checked, through the cache.
char const* orvConfGetByIndex(OrvConfVarIndexT i);

// The value in the file, or the compile-time default: never null for an index of the table.
char const* orvConfGetDefaultByIndex(OrvConfVarIndexT i);
// The same by name; null, reported through messlog2, for a name that the table lacks, even
// if the file has it.
char const* orvConfGetDefault(char const* name);

#endif
