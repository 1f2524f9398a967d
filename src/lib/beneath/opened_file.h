// opened_file - opens and makes files beneath a directory
//
// Paths and failures are those of place.h. Only regular files are ever opened: the kind is checked
// on a descriptor that can neither read nor write (O_PATH). errno can also be:
//   EISDIR   it is a directory
//   EINVAL   it is a FIFO, a socket or a device
//   EMLINK   it has further names, so it may be somebody else's file
//   EFBIG    it is larger than the caller allows
//   EAGAIN   somebody holds a lease on it
// Descriptors are close-on-exec.

#ifndef MAILVEK_LIB_BENEATH_OPENED_FILE_H
#define MAILVEK_LIB_BENEATH_OPENED_FILE_H

#include "lib/beneath/rights.h"
#include "lib/report/owned.h"

#include <limits>

#include <sys/types.h>

constexpr off_t any_size = std::numeric_limits<off_t>::max();

// Takes a regular file with one name and at most that many bytes. The descriptor is for set_rights
// and fstat; it can neither read nor write (O_PATH).
[[nodiscard]] OpenDescriptor take_file_beneath(int dir, char const* path, off_t most);

// Opens such a file; access is O_RDONLY, O_WRONLY or O_RDWR, with O_APPEND or O_TRUNC.
[[nodiscard]] OpenDescriptor open_file_beneath(int dir, char const* path, int access, off_t most);

// Opens it as a stream for reading. Null with errno set.
[[nodiscard]] OpenFile read_file_beneath(int dir, char const* path, off_t most);

// Opens the very file that take_file_beneath has taken, in the same way.
[[nodiscard]] OpenDescriptor open_taken_file(int taken, int access);

// Makes a new file, open for reading and writing, with exactly this mode: the umask does not count.
// EEXIST if the name is taken, even by a link.
[[nodiscard]] OpenDescriptor make_file_beneath(int dir, char const* path, mode_t mode);

// Opens an existing file, as open_file_beneath does, or makes a missing one, as make_file_beneath
// does.
[[nodiscard]] OpenDescriptor open_or_make_beneath(int dir, char const* path, int access, off_t most,
                                                  mode_t mode);

// Makes a stream that owns the descriptor. After a failure, null with errno set, it is closed.
[[nodiscard]] OpenFile stream_of(OpenDescriptor descriptor, char const* mode);

#endif
