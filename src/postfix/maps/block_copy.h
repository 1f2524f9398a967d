// block_copy - copies the content of a file to another one
//
// Both take open files, the second one empty and open for writing. shareBlocks makes both files use
// the same disk blocks until one of them changes, which costs next to nothing for any size. It
// returns false where the file system cannot. copyBlocks copies that many bytes, or fewer if the
// file is shorter. 0, or -1 with errno set. Nothing is reported.

#ifndef MAILVEK_POSTFIX_MAPS_BLOCK_COPY_H
#define MAILVEK_POSTFIX_MAPS_BLOCK_COPY_H

#include <sys/types.h>

namespace orvek::mail::postfix {

[[nodiscard]] bool shareBlocks(int from, int to);
[[nodiscard]] int copyBlocks(int from, int to, off_t size);

} // namespace orvek::mail::postfix

#endif
