// account_log_files - opening and making what SQLite keeps beside the account database
//
// That is the journal, the write-ahead log and the index of the log. Whoever owns the directory can
// put any file there, a file of root's from the same directory too. So an existing one is used only
// if it belongs to the owner of the database, and root's files are never changed or given away. A
// new one has its owner, group and mode before it has its name, so that no reader finds it without
// them, even after a kill.

#ifndef MAILVEK_MAIL_LIB_ACCOUNTS_ACCOUNT_LOG_FILES_H
#define MAILVEK_MAIL_LIB_ACCOUNTS_ACCOUNT_LOG_FILES_H

#include <sys/stat.h>
#include <sys/types.h>

// The mode of the log and its index, by that of the database: who may read the database may read
// and write them, and nobody else.
mode_t account_log_mode(mode_t database);

// Opens a regular file with one name, without following links and without opening a FIFO or a
// device. The flags are those of open; O_CREAT is ignored. The owner must be as given, unless it is
// any_owner. -1 and errno: ELOOP for another kind of file, EACCES for another owner.
constexpr uid_t any_owner = static_cast<uid_t>(-1);
int open_whole_file(char const* path, int flags, uid_t owner);

// Opens the file of the database, or makes it if the flags have O_CREAT. -1 and errno; that a file
// has another owner, or cannot be given to the readers, is reported by orvek_log once a file.
int open_log_file(char const* path, int flags, mode_t mode, struct stat const& database);

#endif
