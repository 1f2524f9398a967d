// made_directory - directories beneath a directory, made
//
// Paths and failures are those of place.h. A new directory gets its owner and mode by its
// descriptor, exactly as told, whatever the umask and the set-gid bit above it. One that is there
// is opened and left as it is: the caller may use set_rights. ENOTDIR if something else is there,
// ELOOP if that is a link.
//
// No command calls these; they are for callers to come: make_directories_beneath.

#ifndef MAILVEK_LIB_BENEATH_MADE_DIRECTORY_H
#define MAILVEK_LIB_BENEATH_MADE_DIRECTORY_H

#include "lib/beneath/rights.h"
#include "lib/report/owned.h"

enum class Making
{
    anew,  // this call has made it
    there, // it was there
};

// Makes the directory at path unless it is there, and opens it. making, which may be null, is told
// even if the new one could not be given its rights; it is not removed then.
[[nodiscard]] OpenDescriptor make_directory_beneath(int dir, char const* path, Rights const& rights,
                                                    Making* making);

// The same with the missing ones above it, each with these rights.
[[nodiscard]] OpenDescriptor make_directories_beneath(int dir, char const* path,
                                                      Rights const& rights);

#endif
