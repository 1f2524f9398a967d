// made_directory - makes directories beneath a directory
//
// Paths and failures are those of place.h. A new directory gets exactly the given owner and mode,
// through its descriptor; the umask and a set-gid bit above it do not matter. An existing directory
// is opened and left as it is: the caller may use set_rights. ENOTDIR if another kind of file is
// there, ELOOP for a link.
//
// No command calls these; they are for callers to come: make_directories_beneath.

#ifndef MAILVEK_LIB_BENEATH_MADE_DIRECTORY_H
#define MAILVEK_LIB_BENEATH_MADE_DIRECTORY_H

#include "lib/beneath/rights.h"
#include "lib/report/owned.h"

enum class Making
{
    anew,  // this call has made it
    there, // it existed before
};

// Makes the directory at path unless it exists, and opens it. Sets *making, if making is not null,
// even if the new directory could not get its rights; then it is not removed.
[[nodiscard]] OpenDescriptor make_directory_beneath(int dir, char const* path, Rights const& rights,
                                                    Making* making);

// Also makes the missing directories above it, each with these rights.
[[nodiscard]] OpenDescriptor make_directories_beneath(int dir, char const* path,
                                                      Rights const& rights);

#endif
