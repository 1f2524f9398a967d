#include "lib/host/orvek_ugid.h"

#include "lib/report/liblog.h"

#include <algorithm>
#include <cerrno>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <limits>

#include <grp.h>
#include <pwd.h>

namespace {

gid_t to_gid(char const* digits)
{
    // Clamped: a number above the last gid would wrap round to a group that exists.
    unsigned long const last = std::numeric_limits<gid_t>::max();
    return static_cast<gid_t>(std::min(strtoul(digits, nullptr, 10), last));
}

} // namespace

int orvek_getpw(char const* username, uid_t* uid, gid_t* gid, char const** dir)
{
    passwd const* const user = getpwnam(username);
    if (!user) {
        messlog2(0, 0, "Unable to getpwnam for user %s", username);
        return -1;
    }
    if (uid)
        *uid = user->pw_uid;
    if (gid)
        *gid = user->pw_gid;
    if (dir)
        *dir = user->pw_dir;
    return 0;
}

unsigned int orvek_ugid(char const* username, int cmd)
{
    uid_t uid = 0;
    gid_t gid = 0;
    // Deliberate: an unknown user gives 0, because the callers go on with it.
    static_cast<void>(orvek_getpw(username, &uid, &gid, nullptr));
    return cmd == 0 ? uid : gid;
}

bool is_number(char const* c)
{
    return c[strspn(c, "0123456789")] == '\0';
}

gid_t get_gid_by_name(char const* name)
{
    group const* const found = getgrnam(name);
    if (found)
        return found->gr_gid;
    messlog2(0, 0, "getgrnam(%s): %s", name, strerror(errno));
    return 0;
}

gid_t get_gid_by_id(gid_t gid)
{
    if (getgrgid(gid))
        return gid;
    messlog2(0, 0, "getgrgid(%d): %s", static_cast<int>(gid), strerror(errno));
    return 0;
}

gid_t get_group_id(char const* groupname)
{
    return is_number(groupname) ? get_gid_by_id(to_gid(groupname)) : get_gid_by_name(groupname);
}

uid_t get_user_id(char const* username)
{
    passwd const* const user = getpwnam(username);
    if (user)
        return user->pw_uid;
    messlog2(0, 0, "Unable to find uid for user %s: %s", username, strerror(errno));
    return 0;
}

char* get_user_name(uid_t uid)
{
    static char name[4096];
    passwd const* const user = getpwuid(uid);
    if (user)
        snprintf(name, sizeof name, "%s", user->pw_name);
    else
        snprintf(name, sizeof name, "%u", uid);
    return name;
}
