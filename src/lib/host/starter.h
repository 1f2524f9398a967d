// starter - who has started the program
//
// A program of this system may be root's through the set-uid bit of a wrapper alone: its real user
// is the starter then, who may stop or kill it while it holds a lock, and what it makes has his
// group. become_root() makes root and root's group all of its users and groups, with no further
// groups, when its effective user is root and any of the others is not. Nothing is reported: what
// the kernel refuses stays as it was.
//
// starters_uid() is the real user from before become_root(), or the real user where that was not
// called.

#ifndef MAILVEK_LIB_HOST_STARTER_H
#define MAILVEK_LIB_HOST_STARTER_H

#include <sys/types.h>

void become_root();

uid_t starters_uid();

#endif
