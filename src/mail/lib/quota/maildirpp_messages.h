// maildirpp_messages - bytes and messages in a Maildir, counted
//
// Sizes come from the names of the messages where those tell it, as in ",S=1234", so that a
// message costs no look at its file. Messages come and go and folders are renamed meanwhile, and
// none of that is a failure. Nothing is remembered about messages: the memory does not grow with
// their number.
//
// Result: 1, or 0 with errno set and without a report; size and count are those of a part then.
// *mtime is raised to the latest time of a directory that was read. All work in the working
// directory, below which the paths are limited to 4095 characters.

#ifndef MAILVEK_MAIL_LIB_QUOTA_MAILDIRPP_MESSAGES_H
#define MAILVEK_MAIL_LIB_QUOTA_MAILDIRPP_MESSAGES_H

#include "mail/lib/quota/maildirpp_types.h"

#include <ctime>

// Adds what is in one directory of messages. One that is missing or cannot be opened holds none.
[[nodiscard]] int process_maildir_subdir(char const* dir, sizequota_t* size, fcount_t* count,
                                         time_t* mtime);

// Adds what is in a folder's new and cur.
[[nodiscard]] int process_maildirpp_subfolder(char const* dir, sizequota_t* size, fcount_t* count,
                                              time_t* mtime);

// What is in the Maildir that is the working directory and in its folders, but for .Trash. Folders
// are known by the type that the directory gives for them; a link to a directory is none.
[[nodiscard]] int get_maildirpp_messages_usage(sizequota_t* size, fcount_t* count, time_t* mtime);

#endif
