// replaced_file - spares Postfix's programs the wait for a file that was just replaced
//
// A program that reads main.cf within two seconds of its last change waits and reads it again,
// since the file may be half written. A file that was renamed into its place is whole, so the wait
// is for nothing.
//
// A ReplacedFile notes which file has the path. settle() dates the file that has it by then two
// seconds back, so that it is read at once. It does so only for a regular file that is not the
// noted one, was modified about now, and that nobody has open for writing; writers are held off
// meanwhile. The new date is never earlier than that of the noted file, so that readers still see
// the date go up. Any other file is left as it is, and so is a file on a file system without
// leases.
//
// There are no failures: without the new date only time is lost. Keeps errno. The path is no
// symbolic link once the file has been replaced; a link is left alone.

#ifndef MAILVEK_POSTFIX_MAIN_CF_REPLACED_FILE_H
#define MAILVEK_POSTFIX_MAIN_CF_REPLACED_FILE_H

#include <ctime>
#include <string>

#include <sys/types.h>

namespace orvek::mail::postfix {

class ReplacedFile
{
public:
    explicit ReplacedFile(std::string path);
    void settle() const;

private:
    std::string const path;
    dev_t device = 0; // both 0 when there was no file
    ino_t inode = 0;
    timespec modified = {};
};

} // namespace orvek::mail::postfix

#endif
