// maildirpp_messages - counts the bytes and messages in a Maildir
//
// The size comes from the message's name where the name has it, as in ",S=1234"; then the file is
// not touched. Messages may come and go and folders may be renamed during the count; none of that
// is a failure. Memory does not grow with the number of messages.
//
// Result: 1; or 0 with errno set and without a report, when size and count cover only a part.
// *mtime is raised to the latest time of a directory that was read. All functions work in the
// working directory; paths below it have at most 4095 characters.

#ifndef MAILVEK_MAIL_LIB_QUOTA_MAILDIRPP_MESSAGES_H
#define MAILVEK_MAIL_LIB_QUOTA_MAILDIRPP_MESSAGES_H

#include "mail/lib/quota/maildirpp_types.h"

#include <ctime>

// Adds one directory of messages. A directory that is missing or cannot be opened is empty.
[[nodiscard]] int process_maildir_subdir(char const* dir, sizequota_t* size, fcount_t* count,
                                         time_t* mtime);

// Adds a folder's new and cur.
[[nodiscard]] int process_maildirpp_subfolder(char const* dir, sizequota_t* size, fcount_t* count,
                                              time_t* mtime);

// Counts the Maildir that is the working directory, with its folders except .Trash. An entry is a
// folder when the directory gives its type as directory; a link to a directory is not.
[[nodiscard]] int get_maildirpp_messages_usage(sizequota_t* size, fcount_t* count, time_t* mtime);

#endif
