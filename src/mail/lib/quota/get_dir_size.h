// get_dir_size - the size of a tree of files
//
// The sum over everything in the tree, directories included: the sizes in bytes, or with in_blocks
// not zero the blocks on disk. No link is followed. Entries that vanish, or whose stat or open
// fails, are passed over. A directory that somebody moves during the walk may end the sum early.
// A tree may have 4,000,000 entries.
//
// Result: -1 with errno set, not reported, when the tree cannot be read to its end; EFBIG when it
// has more entries. Paths in the tree may have any length; lib/beneath/tree.h says what a walk
// costs.
//
// No command calls these, they are for callers to come: count_cur_dir.

#ifndef MAILVEK_MAIL_LIB_QUOTA_GET_DIR_SIZE_H
#define MAILVEK_MAIL_LIB_QUOTA_GET_DIR_SIZE_H

#include "mail/lib/quota/maildirpp_types.h"

// Always in bytes. path may be a single file.
[[nodiscard]] sizequota_t get_dir_size(char const* path, int in_blocks);

// The size of everything below the working directory, without that directory itself; blocks are
// units of 512 bytes here.
[[nodiscard]] sizequota_t count_cur_dir(int in_blocks);

#endif
