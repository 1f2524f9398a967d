// close_descriptors - closes what a child must not inherit
//
// Closes every descriptor from 3 up to the soft limit of RLIMIT_NOFILE, 20 if that cannot be read,
// except the given one. The limit can be a billion, so only open descriptors cost time. Failures
// are ignored and errno is kept.

#ifndef MAILVEK_LIB_PROGRAMS_CLOSE_DESCRIPTORS_H
#define MAILVEK_LIB_PROGRAMS_CLOSE_DESCRIPTORS_H

void close_descriptors(int except = -1);

#endif
