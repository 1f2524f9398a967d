#include "lib/files/libtree.h"

#include "lib/beneath/place.h"
#include "lib/beneath/tree.h"
#include "lib/host/orvek_ugid.h"
#include "lib/report/failure.h"
#include "lib/report/owned.h"

#include <cerrno>
#include <cstring>
#include <string>

namespace {

// How the report of a failure begins. The name and the error follow.
struct TreeTexts
{
    char const* argument;  // for a file that is the argument itself
    char const* entry;     // for a file in a directory
    char const* directory; // for a directory, after its entries
};

constexpr TreeTexts chown_texts = {
    "Unable to chown directory entry",
    "Unable to chown directory entry",
    "Unable to chown dir",
};
constexpr TreeTexts chmod_texts = {
    "Unable to chmod entry",
    "Unable to chmod directory entry",
    "Unable to chmod dir",
};
constexpr TreeTexts removal_texts = {
    "Unable to unlink entry",
    "Unable to unlink directory entry",
    "Unable to remove dir",
};

char const* text_of(TreeTrouble const& trouble, TreeTexts const& texts)
{
    switch (trouble.where) {
    case TreeTrouble::look:
        return "Unable to get entry";
    case TreeTrouble::open:
        return "Unable to open dir";
    case TreeTrouble::read:
        return "Unable to check directory entry";
    case TreeTrouble::go_back:
        return "Unable to restore & close current dir";
    case TreeTrouble::entry:
        return trouble.argument ? texts.argument : texts.entry;
    case TreeTrouble::directory:
        break;
    }
    return texts.directory;
}

std::string without_last_slashes(std::string path)
{
    while (path.size() > 1 && path.back() == '/')
        path.pop_back();
    return path;
}

int treat(char const* dir, TreeSteps const& steps, int force_self, TreeTrouble& trouble)
{
    std::string const path = without_last_slashes(dir);
    char const* name = nullptr;
    OpenDescriptor const parent = open_parent(path.c_str(), name);
    trouble = {.where = TreeTrouble::look, .argument = true, .name = path};
    if (parent.get() < 0)
        return -1;
    TreeTop const top = force_self ? TreeTop::with : TreeTop::without;
    return walk_tree(parent.get(), name, steps, top, trouble);
}

// A failure ends the process. A missing dir is not a failure of a removal.
void treat_tree(char const* dir, TreeSteps const& steps, TreeTexts const& texts, int force_self)
{
    ErrnoKeeper const keeper;
    TreeTrouble trouble = {};
    if (treat(dir, steps, force_self, trouble) == 0)
        return;
    if (&texts == &removal_texts && trouble.argument && trouble.where <= TreeTrouble::open &&
        errno == ENOENT)
        return;
    fatal("%s %s: %s\n", text_of(trouble, texts), trouble.argument ? dir : trouble.name.c_str(),
          strerror(errno));
}

} // namespace

void chown_tree(char const* dir, char const* user, char const* group, int force_self)
{
    uid_t const uid = get_user_id(user);
    gid_t const gid = get_group_id(group);
    Rights const rights = {uid, gid, same_mode};
    treat_tree(dir, change_of_rights(rights, rights), chown_texts, force_self);
}

void chmod_tree(char const* dir, mode_t file_mode, mode_t dir_mode, int force_self)
{
    treat_tree(dir, change_of_rights(mode_only(file_mode), mode_only(dir_mode)), chmod_texts,
               force_self);
}

int tree_set_perms(char const* dir, char const* user, char const* group, mode_t file_mode,
                   mode_t dir_mode, int force_self)
{
    chown_tree(dir, user, group, force_self);
    chmod_tree(dir, file_mode, dir_mode, force_self);
    return 0;
}

void rm_tree(char const* dir, int force_self)
{
    treat_tree(dir, removal(), removal_texts, force_self);
}
