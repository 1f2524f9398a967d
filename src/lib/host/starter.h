// starter - who has started the program
//
// A program of this system may be root's only through the set-uid bit of a wrapper. Then its real
// user is the starter, who may stop or kill it while it holds a lock, and its files get his group.
// become_root() sets all users and groups of the process to root and root's group, without further
// groups, when its effective user is root and any other one is not. Nothing is reported: what the
// kernel refuses stays as it was.
//
// starters_uid() is the real user before become_root(), or the real user if that was not
// called.

#ifndef MAILVEK_LIB_HOST_STARTER_H
#define MAILVEK_LIB_HOST_STARTER_H

#include <sys/types.h>

void become_root();

uid_t starters_uid();

#endif
