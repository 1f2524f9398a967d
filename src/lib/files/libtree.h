// libtree - owner, mode and removal of whole directory trees
//
// No symbolic link is followed, not even dir itself; only the path before dir may have links.
// chown_tree and chmod_tree change directories and regular files with one name. They leave other
// kinds alone, and files with further names, which may be somebody else's. rm_tree removes all
// kinds. dir may be a single file. A directory dir is itself included only if force_self is not
// zero. Entries that vanish during the walk are passed over.
//
// Every failure is reported through messlog2 and ends the process with status 1. A missing dir is a
// failure, except for rm_tree. errno is kept.
//
// Paths in the tree may have any length. The limits are those of lib/beneath/tree.h: 100,000 levels
// and 2^27 entries.
//
// No command calls these; they are for callers to come: chmod_tree, chown_tree, tree_set_perms.

#ifndef MAILVEK_LIB_FILES_LIBTREE_H
#define MAILVEK_LIB_FILES_LIBTREE_H

#include <sys/types.h>

// Takes the names of a user and a group; the group may be a number. An unknown name is reported and
// taken as 0, which is root.
void chown_tree(char const* dir, char const* user, char const* group, int force_self);

void chmod_tree(char const* dir, mode_t file_mode, mode_t dir_mode, int force_self);

// chown_tree, then chmod_tree. Returns 0.
int tree_set_perms(char const* dir, char const* user, char const* group, mode_t file_mode,
                   mode_t dir_mode, int force_self);

void rm_tree(char const* dir, int force_self);

#endif
