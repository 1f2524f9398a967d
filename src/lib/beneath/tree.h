// tree - removes whole trees beneath a directory, or sets their owner and mode
//
// No link is followed. Nothing outside the tree is reached, whatever others rename during the walk.
// A walk costs at most 40 descriptors and some 100 bytes per level, however large a directory is. A
// tree may have 100,000 levels (else ENAMETOOLONG) and 2^27 entries (else EFBIG), so the walk ends
// even if somebody keeps adding entries. Entries that vanish during the walk are passed over. The
// argument may be a single file.
//
// Result: 0, or -1 with errno set; nothing is reported. What was done before a failure stays.
//
// No command calls these, they are for callers to come: change_of_rights, set_tree_rights_beneath.

#ifndef MAILVEK_LIB_BENEATH_TREE_H
#define MAILVEK_LIB_BENEATH_TREE_H

#include "lib/beneath/rights.h"

#include <functional>
#include <string>

#include <sys/types.h>

// Whether the top directory itself is included.
enum class TreeTop
{
    with,
    without,
};

// Removes everything. A missing path is a success.
[[nodiscard]] int remove_tree_beneath(int dir, char const* path, TreeTop top);

// Sets the rights of directories and of regular files with one name. Other kinds stay as they are,
// and so do files with further names, which may be somebody else's.
[[nodiscard]] int set_tree_rights_beneath(int dir, char const* path, Rights const& files,
                                          Rights const& directories, TreeTop top);

// The steps of a walk, for other work on a tree. A step returns 0, or -1 with errno set to end the
// walk.
struct TreeSteps
{
    // For each entry of dir that is not a directory. kind is its mode masked by S_IFMT.
    std::function<int(int dir, char const* name, mode_t kind)> entry;
    // For each directory after its entries; self is open on it. Returning again repeats the walk
    // through its entries, at most three times.
    std::function<int(int dir, char const* name, int self)> directory;
    // Passes over a directory in the tree that cannot be opened. Otherwise it ends the walk.
    bool passes_over_unopened = false;
};
constexpr int again = 1;

// The steps of the two functions above. removal passes over entries that vanish.
[[nodiscard]] TreeSteps removal();
[[nodiscard]] TreeSteps change_of_rights(Rights const& files, Rights const& directories);

// Where a walk has failed.
struct TreeTrouble
{
    enum Where
    {
        look,    // at the argument's kind
        open,    // a directory
        read,    // a directory's entries
        go_back, // to the directory above; ESTALE when somebody has moved the lower one
        entry,   // in the step of that name, like the next
        directory,
    };
    Where where;
    bool argument;    // whether the failure is at the argument itself
    std::string name; // of the entry that failed
};

// Visits the entries of a directory before the directory. name is a path beneath dir.
[[nodiscard]] int walk_tree(int dir, char const* name, TreeSteps const& steps, TreeTop top,
                            TreeTrouble& trouble);

#endif
