// mapped_output - a file that is written as memory
//
// A stream buffer over a mapped file. What is written is in the file at once for every reader,
// without a system call. The file grows by whole windows, so zeros follow the last byte until
// finish() cuts them off. Room is reserved before it is mapped: a full disk is a failed write, not
// a signal. No one else may shorten the file while it is written.
//
// The constructor takes over a file that is there, to be written from its beginning. A file that
// cannot be mapped, or that has no room, is not open: the buffer refuses everything, the file may
// hold zeros, and errno is as it was. A write that finds no room fails as that of any stream buffer
// does. finish closes the file and is false when the end could not be cut or the closing failed.
// Both leave the reason in errno, and what succeeds leaves errno alone.
//
// The destructor closes without cutting the end.

#ifndef MAILVEK_UTIL_MAPPED_OUTPUT_H
#define MAILVEK_UTIL_MAPPED_OUTPUT_H

#include "lib/report/owned.h"

#include <streambuf>
#include <string>

#include <sys/types.h>

namespace orvek {

class MappedOutput : public std::streambuf
{
public:
    explicit MappedOutput(std::string const& path);
    ~MappedOutput() override;
    MappedOutput(MappedOutput const&) = delete;
    MappedOutput& operator=(MappedOutput const&) = delete;

    bool is_open() const { return pbase() != nullptr; }
    bool finish();

protected:
    int_type overflow(int_type character) override;

private:
    bool mapNext();
    bool mapAt(off_t offset, std::size_t length);
    void unmap();

    OpenDescriptor file;
    off_t begin = 0; // of the window, in the file
};

} // namespace orvek

#endif
