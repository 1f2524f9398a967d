// close_descriptors - closes what a child shall not inherit
//
// Closes every descriptor from 3 up to, and not including, the soft limit of RLIMIT_NOFILE (20
// if that cannot be read), except the given one. That limit can be a million or a billion, so
// the work follows the descriptors that are open. Failures are not seen; errno is kept.

#ifndef MAILVEK_LIB_PROGRAMS_CLOSE_DESCRIPTORS_H
#define MAILVEK_LIB_PROGRAMS_CLOSE_DESCRIPTORS_H

void close_descriptors(int except = -1);

#endif
