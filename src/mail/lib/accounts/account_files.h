// account_files - the only files that SQLite may touch for the account database
//
// The directory of the database belongs to the mail server's user, who can put anything beside it:
// links, FIFOs, a journal that names other files to be deleted. While an AccountFiles lives, SQLite
// opens and deletes only the database, its journal, its write-ahead log and the index of that, and
// temporary files that it has just created itself. Each must be a regular file with one name. Links
// are not followed, and a FIFO or a device is not opened. SQLite sees no other file at all. What is
// opened is what was looked at, so nobody can exchange the file in between.
//
// The path of the directory may contain links: only root can make those.
//
// A database that SQLite creates has at most mode 0600; a journal has the mode of its database. All
// files beside the database belong to its owner and group. Who may read the database may read and
// write the write-ahead log and its index. account_log_files.h tells which files are refused.
//
// This replaces system calls of SQLite's "unix" VFS in the whole process. They behave as before
// while no AccountFiles lives. Several may live at once.

#ifndef MAILVEK_MAIL_LIB_ACCOUNTS_ACCOUNT_FILES_H
#define MAILVEK_MAIL_LIB_ACCOUNTS_ACCOUNT_FILES_H

#include <string>
#include <string_view>

#include <sys/stat.h>
#include <sys/types.h>

// The mode of a database that only root may write: without the writing of an owner and a group that
// are not root's, and of everybody else.
mode_t account_database_mode(struct stat const& database);

class AccountFiles
{
public:
    explicit AccountFiles(char const* database);
    ~AccountFiles();
    AccountFiles(AccountFiles const&) = delete;
    AccountFiles& operator=(AccountFiles const&) = delete;

    // The database with its directory resolved; as given when there is no such directory.
    char const* path() const { return database.c_str(); }

    // Lets only root write the database, which is open: a reader who may write locks
    // every other reader out for a moment when he closes it. Only root may do so; for others, and
    // on failure, it does nothing.
    void leaveWritingToRoot() const;

    // Whether the path is one of the files of any AccountFiles, or the directory of one.
    static bool contain(std::string_view path);
    static bool areDirectory(std::string_view path);
    static bool areDatabase(std::string_view path);
    static bool guard() { return first != nullptr; }
    // Called when SQLite has opened the database, and before it closes anything.
    static void remember(std::string_view path, int fd);
    static void forget(int fd);
    // The state of the open database that the path is beside. False when none is open.
    static bool lookAtDatabase(std::string_view path, struct stat* info);

private:
    std::string const database;
    std::string const directory;
    int opened = -1; // SQLite's descriptor of the database
    AccountFiles* next;

    static AccountFiles* first;
};

#endif
