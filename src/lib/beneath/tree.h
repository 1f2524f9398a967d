// tree - owner, mode and removal of whole trees beneath a directory
//
// No link is followed, and whatever others rename meanwhile, nothing outside of the tree is
// reached. A tree costs at most 40 descriptors and some 100 bytes a level, however many names a
// directory has. It may be 100,000 levels deep (else ENAMETOOLONG) and have 2^27 entries (else
// EFBIG), so that somebody who keeps adding to it comes to an end. Entries that vanish on the way
// are passed over. The argument may be a single file.
//
// Result: 0, or -1 with errno set; nothing is reported. What was done until then stays done.
//
// No command calls these, they are for callers to come: change_of_rights, set_tree_rights_beneath.

#ifndef MAILVEK_LIB_BENEATH_TREE_H
#define MAILVEK_LIB_BENEATH_TREE_H

#include "lib/beneath/rights.h"

#include <functional>
#include <string>

#include <sys/types.h>

// Whether the directory at the top is treated as well.
enum class TreeTop
{
    with,
    without,
};

// Removes whatever there is. A path that is missing is done.
[[nodiscard]] int remove_tree_beneath(int dir, char const* path, TreeTop top);

// Gives rights to the regular files that have one name, and to the directories; other kinds, and
// files with further names, which may be somebody else's, stay as they are.
[[nodiscard]] int set_tree_rights_beneath(int dir, char const* path, Rights const& files,
                                          Rights const& directories, TreeTop top);

// The walk itself, for what else is to be done with a tree. A step gives 0; -1 to end the walk,
// with errno set.
struct TreeSteps
{
    // What is no directory: beneath dir, with its kind as masked by S_IFMT.
    std::function<int(int dir, char const* name, mode_t kind)> entry;
    // A directory, open as self, when its entries are done. again has them looked through once
    // more, three times at most.
    std::function<int(int dir, char const* name, int self)> directory;
    // Whether a directory in the tree that cannot be opened is passed over, or ends the walk.
    bool passes_over_unopened = false;
};
constexpr int again = 1;

// The steps of the two functions above; removal passes over what vanishes.
[[nodiscard]] TreeSteps removal();
[[nodiscard]] TreeSteps change_of_rights(Rights const& files, Rights const& directories);

// Where a walk has ended.
struct TreeTrouble
{
    enum Where
    {
        look,    // the argument's kind
        open,    // a directory
        read,    // a directory's entries
        go_back, // to the directory above; ESTALE when it has been moved meanwhile
        entry,   // the step of that name
        directory,
    };
    Where where;
    bool argument;    // it is the argument itself
    std::string name; // of the entry
};

// Entries of a directory come before it. name is a path beneath dir.
[[nodiscard]] int walk_tree(int dir, char const* name, TreeSteps const& steps, TreeTop top,
                            TreeTrouble& trouble);

#endif
