#include "lib/host/starter.h"

#include <optional>

#include <grp.h>
#include <unistd.h>

namespace {

constexpr uid_t root = 0;
constexpr gid_t roots_group = 0;

// Ignores a refusal by the kernel, which no caller can change.
void drop_groups()
{
    static_cast<void>(setgroups(0, nullptr));
    static_cast<void>(setresgid(roots_group, roots_group, roots_group));
}

std::optional<uid_t>& remembered()
{
    static std::optional<uid_t> uid;
    return uid;
}

} // namespace

void become_root()
{
    uid_t real = root;
    uid_t effective = root;
    uid_t saved = root;
    if (getresuid(&real, &effective, &saved) != 0)
        return;
    remembered() = real;
    if (effective != root)
        return;
    if (real != root || getgid() != roots_group || getegid() != roots_group)
        drop_groups();
    if (real != root || saved != root)
        static_cast<void>(setresuid(root, root, root));
}

uid_t starters_uid()
{
    return remembered().value_or(getuid());
}
