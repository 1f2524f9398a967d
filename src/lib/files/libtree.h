// libtree - owner, mode and removal of whole directory trees
//
// No symbolic link is followed, dir itself not either; only the directory in which dir lies is
// reached by way of links. chown_tree and chmod_tree change regular files with one name, and
// directories. They leave other kinds alone, and files with further names, which may be somebody
// else's. rm_tree removes all kinds. dir may be a single file. When it is a directory, it is itself
// treated only if force_self is not zero. What vanishes on the way is passed over.
//
// Every failure is reported through messlog2 and ends the process with status 1. A dir that is
// missing is such a failure, but not for rm_tree. errno is kept.
//
// A tree's paths may be of any length. Bounds are those of lib/beneath/tree.h: 100,000 levels and
// 2^27 entries.
//
// No command calls these; they are for callers to come: chmod_tree, chown_tree, tree_set_perms.

#ifndef MAILVEK_LIB_FILES_LIBTREE_H
#define MAILVEK_LIB_FILES_LIBTREE_H

#include <sys/types.h>

// By the names of a user and a group; the group may be a number. An unknown one is reported
// and taken as 0, which is root.
void chown_tree(char const* dir, char const* user, char const* group, int force_self);

void chmod_tree(char const* dir, mode_t file_mode, mode_t dir_mode, int force_self);

// chown_tree, then chmod_tree; 0.
int tree_set_perms(char const* dir, char const* user, char const* group, mode_t file_mode,
                   mode_t dir_mode, int force_self);

void rm_tree(char const* dir, int force_self);

#endif
