// get_dir_size - how much a tree of files takes
//
// The sum over everything in the tree, directories too, of what files hold in bytes; with
// in_blocks not zero, of the blocks that they take on the disk. Symbolic links are not followed.
// What vanishes or cannot be looked at or entered on the way is passed over.
//
// Result: -1 with errno set, not reported, when the tree itself cannot be looked at, entered or
// read to its end.
// The working directory changes on the way and is restored, so paths in the tree may be of any
// length; each level costs a descriptor.

#ifndef MAILVEK_MAIL_LIB_QUOTA_GET_DIR_SIZE_H
#define MAILVEK_MAIL_LIB_QUOTA_GET_DIR_SIZE_H

#include "mail/lib/quota/maildirpp_types.h"

// In bytes in any case. path may be a single file.
[[nodiscard]] sizequota_t get_dir_size(char const* path, int in_blocks);

// What is below the working directory, without that directory itself; blocks are counted in
// units of 512 bytes here. When the way back from a directory fails, the sum so far is returned
// from where that is.
[[nodiscard]] sizequota_t count_cur_dir(int in_blocks);

#endif
