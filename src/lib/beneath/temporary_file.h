// temporary_file - a file that is written beside another and then takes its place
//
// Made new and open for writing and reading, with the mode told, whatever the umask; removed at
// the end of its life unless it has been kept or has taken the place. After a failure get() is
// below 0 with errno set, as by make_file_beneath; nothing is reported. dir has to stay open.
//
// All temporary files of the tool have this owner. AutocleanOFStream and TmpFile of util put a
// stream before it.

#ifndef MAILVEK_LIB_BENEATH_TEMPORARY_FILE_H
#define MAILVEK_LIB_BENEATH_TEMPORARY_FILE_H

#include "lib/beneath/place.h"
#include "lib/report/owned.h"

#include <string>

#include <sys/types.h>

class TemporaryFile
{
public:
    // Named after the target with a dot and six characters that nobody can foresee.
    TemporaryFile(int dir, char const* target, mode_t mode);
    // The same, with these characters for the dot.
    static TemporaryFile with_separator(int dir, char const* target, char const* separator,
                                        mode_t mode);
    // Owns the file of this name, which the caller makes or has made: there is no descriptor.
    static TemporaryFile of_caller(int dir, char const* path);
    // Named after the target with this suffix. What has that name is removed before, unless it is a
    // directory.
    TemporaryFile(int dir, char const* target, char const* suffix, mode_t mode);
    ~TemporaryFile();
    TemporaryFile(TemporaryFile const&) = delete;
    TemporaryFile& operator=(TemporaryFile const&) = delete;

    [[nodiscard]] int get() const { return made.get(); }
    // The name in its directory; empty when it could not be made.
    [[nodiscard]] char const* name() const { return own_name.c_str(); }

    // Gives the descriptor away; the file stays owned.
    [[nodiscard]] int release() { return made.release(); }
    // The same as a stream for writing; null with errno set.
    [[nodiscard]] OpenFile write_stream();

    // Closes what is still open and renames it over the target. 0, or -1 with errno set.
    [[nodiscard]] int replace();

    // Closes what is still open, so that a failure is seen: the result of close.
    [[nodiscard]] int close_now() { return made.close_now(); }

    // Removes it now: exit runs no destructor of a local object. Result: 0, or the error number of
    // a file that could not be removed; errno is kept.
    int remove();

    // Leaves it where it is.
    void keep() { own_name.clear(); }

private:
    explicit TemporaryFile(int dir, char const* path);
    TemporaryFile(char const* separator, int dir, char const* target, mode_t mode);

    Place const place;
    std::string own_name;
    OpenDescriptor made;
};

#endif
