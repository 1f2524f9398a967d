// temporary_file - a file that is written beside another one and then replaces it
//
// The constructor makes a new file, open for writing and reading, with exactly the given mode. The
// destructor removes it unless keep() or replace() was called. After a failure get() is below 0
// with errno set, as in make_file_beneath; nothing is reported. dir must stay open.
//
// All temporary files of the tool have this owner. AutocleanOFStream and TmpFile of util add a
// stream.

#ifndef MAILVEK_LIB_BENEATH_TEMPORARY_FILE_H
#define MAILVEK_LIB_BENEATH_TEMPORARY_FILE_H

#include "lib/beneath/place.h"
#include "lib/report/owned.h"

#include <string>

#include <sys/types.h>

class TemporaryFile
{
public:
    // The name is the target's with a dot and six characters that nobody can predict.
    TemporaryFile(int dir, char const* target, mode_t mode);
    // The same, with separator instead of the dot.
    static TemporaryFile with_separator(int dir, char const* target, char const* separator,
                                        mode_t mode);
    // Owns the file of this name, which the caller makes or has made. It has no descriptor.
    static TemporaryFile of_caller(int dir, char const* path);
    // The name is the target's with this suffix. An existing file of that name is removed first; a
    // directory is not.
    TemporaryFile(int dir, char const* target, char const* suffix, mode_t mode);
    ~TemporaryFile();
    TemporaryFile(TemporaryFile const&) = delete;
    TemporaryFile& operator=(TemporaryFile const&) = delete;

    [[nodiscard]] int get() const { return made.get(); }
    // The name in its directory, or empty when the file could not be made.
    [[nodiscard]] char const* name() const { return own_name.c_str(); }

    // Hands the descriptor over. The file stays owned.
    [[nodiscard]] int release() { return made.release(); }
    // Does the same as a stream for writing. Null with errno set.
    [[nodiscard]] OpenFile write_stream();

    // Closes the file if it is open and renames it over the target. 0, or -1 with errno set.
    [[nodiscard]] int replace();

    // Closes the file if it is open and returns the result of close.
    [[nodiscard]] int close_now() { return made.close_now(); }

    // Removes the file now, for use before exit, which runs no destructors of locals. Returns 0, or
    // the error number when the file could not be removed. Keeps errno.
    int remove();

    // Leaves the file where it is.
    void keep() { own_name.clear(); }

private:
    explicit TemporaryFile(int dir, char const* path);
    TemporaryFile(char const* separator, int dir, char const* target, mode_t mode);

    Place const place;
    std::string own_name;
    OpenDescriptor made;
};

#endif
