// opened_file - files beneath a directory, opened and made
//
// Paths and failures are those of place.h. Nothing but a regular file is ever opened: a FIFO, a
// socket or a device is told by a descriptor that neither reads nor writes. More of errno:
//   EISDIR   it is a directory
//   EINVAL   it is a FIFO, a socket or a device
//   EMLINK   it has further names, so that it may be somebody else's
//   EFBIG    it is larger than the caller takes
//   EAGAIN   somebody holds a lease on it
// Descriptors are close-on-exec.

#ifndef MAILVEK_LIB_BENEATH_OPENED_FILE_H
#define MAILVEK_LIB_BENEATH_OPENED_FILE_H

#include "lib/beneath/rights.h"
#include "lib/report/owned.h"

#include <limits>

#include <sys/types.h>

constexpr off_t any_size = std::numeric_limits<off_t>::max();

// Takes a regular file with one name and at most so many bytes, for its rights and for what fstat
// tells; it is not open for reading or writing (O_PATH).
[[nodiscard]] OpenDescriptor take_file_beneath(int dir, char const* path, off_t most);

// Opens such a file; access is O_RDONLY, O_WRONLY or O_RDWR, with O_APPEND or O_TRUNC.
[[nodiscard]] OpenDescriptor open_file_beneath(int dir, char const* path, int access, off_t most);

// The same as a stream for reading; null with errno set.
[[nodiscard]] OpenFile read_file_beneath(int dir, char const* path, off_t most);

// Opens the very file that take_file_beneath has taken, in the same way.
[[nodiscard]] OpenDescriptor open_taken_file(int taken, int access);

// Makes a new file, open for reading and writing, with this mode, whatever the umask. EEXIST if
// there is anything of that name, a link too.
[[nodiscard]] OpenDescriptor make_file_beneath(int dir, char const* path, mode_t mode);

// Opens the file that is there, as open_file_beneath does, or makes it new, as make_file_beneath
// does.
[[nodiscard]] OpenDescriptor open_or_make_beneath(int dir, char const* path, int access, off_t most,
                                                  mode_t mode);

// A stream that takes the descriptor over; null with errno set, and the descriptor is closed then.
[[nodiscard]] OpenFile stream_of(OpenDescriptor descriptor, char const* mode);

#endif
