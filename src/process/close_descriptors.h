// close_descriptors - closes all descriptors of a range at once
//
// The limit of descriptors of a process can be a million or a billion, so the work follows the
// descriptors that are open and not the numbers that could be.

#ifndef MAILVEK_PROCESS_CLOSE_DESCRIPTORS_H
#define MAILVEK_PROCESS_CLOSE_DESCRIPTORS_H

namespace orvek::process {

// Closes every descriptor from 3 up to, and not including, the soft limit of RLIMIT_NOFILE (20
// if that cannot be read), except the given one. Failures are ignored; errno is kept.
void closeAllDescriptors(int except);

} // namespace orvek::process

#endif
