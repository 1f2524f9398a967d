// get_dir_size - the size of a tree of files
//
// The sum over everything in the tree, directories included: the bytes that files hold, or with
// in_blocks not zero the blocks that they take on the disk. Symbolic links are not followed.
// Entries that vanish, or that cannot be looked at or entered, are passed over.
//
// Result: -1 with errno set, not reported, when the tree itself cannot be looked at, entered or
// read to its end. The working directory changes meanwhile and is restored, so paths in the tree
// may have any length. Each level costs a descriptor.

#ifndef MAILVEK_MAIL_LIB_QUOTA_GET_DIR_SIZE_H
#define MAILVEK_MAIL_LIB_QUOTA_GET_DIR_SIZE_H

#include "mail/lib/quota/maildirpp_types.h"

// Always in bytes. path may be a single file.
[[nodiscard]] sizequota_t get_dir_size(char const* path, int in_blocks);

// The size of everything below the working directory, without that directory itself; blocks are
// units of 512 bytes here. When the way back from a directory fails, the result is the sum so
// far and the working directory stays where it was lost.
[[nodiscard]] sizequota_t count_cur_dir(int in_blocks);

#endif
