// orvek_ugid - users and groups by name and by number
//
// An unknown user or group gives 0, which is root; callers accept this. Failures are reported
// through messlog2 with status 0 and do not end the process.

#ifndef MAILVEK_LIB_HOST_ORVEK_UGID_H
#define MAILVEK_LIB_HOST_ORVEK_UGID_H

#include <sys/types.h>

// Fills each output that is not null. dir gets the home directory in the record of the user
// database, which the next lookup of a user overwrites. 0, or -1 when the user is unknown.
int orvek_getpw(char const* username, uid_t* uid, gid_t* gid, char const** dir);

// The user's uid for cmd 0, the gid for any other. 0 when the user is unknown, the report
// being the only sign of it.
unsigned int orvek_ugid(char const* username, int cmd);

// Whether all characters are digits, which is so for an empty string.
bool is_number(char const* c);

gid_t get_gid_by_name(char const* name);
// gid itself if there is such a group.
gid_t get_gid_by_id(gid_t gid);
// By number if groupname is one, by name otherwise.
gid_t get_group_id(char const* groupname);

uid_t get_user_id(char const* username);

// The user's name, or the number in decimal. The buffer is static; the next call overwrites
// it.
char* get_user_name(uid_t uid);

#endif
