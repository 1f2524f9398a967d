// maildirpp_folders - the folders of a Maildir, and when they last changed
//
// Result: 1, or 0 with errno set after a report through messlog2, which does not end the
// process. Paths have at most 4095 characters.

#ifndef MAILVEK_MAIL_LIB_QUOTA_MAILDIRPP_FOLDERS_H
#define MAILVEK_MAIL_LIB_QUOTA_MAILDIRPP_FOLDERS_H

#include <ctime>

// Whether an entry of this name is a folder that counts against the quota. .Trash does not.
[[nodiscard]] bool is_maildirpp_subfolder(char const* name);

// Raises *mtime to the times of <dir>/cur and <dir>/new if they are later. Fails with ENAMETOOLONG,
// or with EIO when one of the two is not a directory or its stat fails.
[[nodiscard]] int get_maildirpp_folder_mtime(char const* dir, time_t* mtime);

// The same for the Maildir that is the working directory, with all its folders that count.
// Entries that are named like a folder but are not directories are reported and passed over.
// A Maildir may have 100,000 entries: EFBIG without a report for more.
[[nodiscard]] int get_maildirpp_latest_mtime(time_t* mtime);

#endif
