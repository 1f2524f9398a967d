// block_copy - the content of a file, given to another one
//
// Both take open files, the second one empty and open for writing. shareBlocks has both files use
// the same blocks of the disk until one of them changes, which costs next to nothing whatever the
// size; false where the file system cannot. copyBlocks copies so many bytes, or as many as there
// are. 0, or -1 with errno set. Nothing is reported.

#ifndef MAILVEK_POSTFIX_MAPS_BLOCK_COPY_H
#define MAILVEK_POSTFIX_MAPS_BLOCK_COPY_H

#include <sys/types.h>

namespace orvek::mail::postfix {

[[nodiscard]] bool shareBlocks(int from, int to);
[[nodiscard]] int copyBlocks(int from, int to, off_t size);

} // namespace orvek::mail::postfix

#endif
