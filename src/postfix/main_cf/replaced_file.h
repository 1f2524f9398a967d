// replaced_file - spares the mail server's programs the wait for a file that was just replaced
//
// Whoever reads main.cf within two seconds of its last change waits, and reads it again: it may
// be half written. A file that was renamed into its place is whole, and the wait is for nothing.
//
// A ReplacedFile notes which file stands under the path. settle() dates the one that stands there
// by then two seconds back, so that it is read at once; only if it is another file than the one
// noted, regular, of about now, and nobody has it open for writing, which is held off meanwhile.
// It is never dated before the one that was noted, so that a change is still seen by the date
// going up. Anything else is left as it is, and so is a file on a file system that cannot tell.
// All that is lost without the new date is time, so no failure is seen. errno is kept. The path
// itself is no symbolic link once the file has been replaced; one is left alone.

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
