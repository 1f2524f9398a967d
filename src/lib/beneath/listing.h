// listing - the entries of a directory
//
// list_directory calls visit with each entry of the directory that dir is open on, but "." and
// "..", until visit gives something other than 0, which is the result then. No entry is followed.
// dir may be listed again, and visit may use it. Result: 0 at the end; -1 with errno set, not
// reported, when it cannot be read on; EFBIG when it has more than most entries.

#ifndef MAILVEK_LIB_BENEATH_LISTING_H
#define MAILVEK_LIB_BENEATH_LISTING_H

#include "lib/report/owned.h"

#include <cstddef>
#include <functional>

#include <sys/types.h>

struct ListedEntry
{
    char const* name; // valid until visit returns
    mode_t kind;      // as masked by S_IFMT: S_IFREG, S_IFDIR, S_IFLNK and so on
};

constexpr std::size_t any_number = static_cast<std::size_t>(-1);

[[nodiscard]] int list_directory(int dir, std::size_t most,
                                 std::function<int(ListedEntry const&)> const& visit);

// The next entry of a stream that counts, whose kind costs a system call only where the file system
// does not tell it along with the name. 1; 0 at the end; -1 with errno set.
[[nodiscard]] int next_listed(OpenDir const& stream, ListedEntry& entry);

// A stream on what dir is open on, with a position of its own; null with errno set.
[[nodiscard]] OpenDir open_listing(int dir);

#endif
