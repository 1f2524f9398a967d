// mail_tree - the tree of mailboxes, entered without following a link
//
// The mail root is ORVEK_MAILNAMES_D of the product configuration. Links in its own path are
// followed, since only root names it. Everything beneath it belongs to the mail user, who may put
// links, FIFOs and devices anywhere: no link is followed there, see lib/beneath/place.h.
//
// Result: a descriptor below 0 with errno set, not reported.

#ifndef MAILVEK_MAIL_LIB_HOME_MAIL_TREE_H
#define MAILVEK_MAIL_LIB_HOME_MAIL_TREE_H

#include "lib/report/owned.h"

#include <sys/types.h>

// No delivery file of an honest mailname is larger: 1 MiB holds some 20,000 forwards.
constexpr off_t largest_delivery_file = off_t{1} << 20;

[[nodiscard]] OpenDescriptor open_mail_root();

// Opens a directory by its whole path. Beneath the mail root no link is followed. Elsewhere links
// in the path are followed, but the directory itself must not be one.
[[nodiscard]] OpenDescriptor open_mail_directory(char const* path);

// Opens the directory of a file in the same way, and points *name at the file's own name.
[[nodiscard]] OpenDescriptor open_directory_of(char const* file, char const** name);

#endif
