// orvek_ugid - users and groups by name and by number
//
// An unknown user or group gives 0, which is root; callers accept this. A failure is reported
// through messlog2 and does not end the process.
//
// No command calls these; they are for callers to come: get_gid_by_id, get_gid_by_name,
// get_group_id, get_user_id, get_user_name, is_number.

#ifndef MAILVEK_LIB_HOST_ORVEK_UGID_H
#define MAILVEK_LIB_HOST_ORVEK_UGID_H

#include <sys/types.h>

// Fills each output that is not null. dir gets the home directory; the next lookup of a user
// overwrites it. Returns 0, or -1 for an unknown user.
int orvek_getpw(char const* username, uid_t* uid, gid_t* gid, char const** dir);

// The user's uid for cmd 0, the gid for any other. 0 for an unknown user, which only the report
// tells.
unsigned int orvek_ugid(char const* username, int cmd);

// Whether all characters are digits. True for an empty string.
bool is_number(char const* c);

gid_t get_gid_by_name(char const* name);
// gid itself if there is such a group.
gid_t get_gid_by_id(gid_t gid);
// By number if groupname is one, by name otherwise.
gid_t get_group_id(char const* groupname);

uid_t get_user_id(char const* username);

// The user's name, or the number in decimal. In a static buffer, which the next call overwrites.
char* get_user_name(uid_t uid);

#endif
