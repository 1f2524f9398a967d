// listing - the entries of a directory
//
// list_directory calls visit with each entry of the directory that dir is open on, except "." and
// "..". It stops when visit returns anything but 0 and returns that. No entry is followed. dir may
// be listed again, and visit may use it. Result: 0 at the end; -1 with errno set, not reported,
// when the directory cannot be read; EFBIG when it has more than most entries.

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

// The stream's next entry, except "." and "..". Its kind costs a system call only where the file
// system does not list it with the name. Returns 1; 0 at the end; -1 with errno set.
[[nodiscard]] int next_listed(OpenDir const& stream, ListedEntry& entry);

// Opens a stream on the directory of dir, with a position of its own. Null with errno set.
[[nodiscard]] OpenDir open_listing(int dir);

#endif
