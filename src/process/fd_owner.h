// fd_owner - owners of descriptors, and how the process layer makes pipes
//
// FdOwner closes the descriptor that it owns, or refers to one that someone else owns. PipeOwner
// has the two ends of a pipe.
//
// close() raises SystemError "close" and resets the fields all the same. The destructor does the
// same; while an exception is in flight it closes quietly and keeps errno. The destructor of
// PipeOwner closes the write end first, always closes the read end, and raises "pipe read-end
// close" with the first error number. Keep these owners as locals, as members or in plain arrays:
// a destructor that raises inside a standard container or smart pointer ends the process.

#ifndef MAILVEK_PROCESS_FD_OWNER_H
#define MAILVEK_PROCESS_FD_OWNER_H

namespace orvek {

class FdOwner
{
public:
    FdOwner() = default;
    explicit FdOwner(int descriptor) : owned(descriptor), fd(descriptor) {}
    static FdOwner borrowed(int descriptor);
    FdOwner(FdOwner&& other) noexcept;
    FdOwner& operator=(FdOwner&& other) noexcept(false);
    ~FdOwner() noexcept(false);

    void close();
    // As close(), but a failure is returned as its error number, 0 for none.
    int closeQuietly() noexcept;

    int owned = -1; // the descriptor to close; -1 if this object owns nothing
    int fd = -1;    // the descriptor to use
};

class PipeOwner
{
public:
    PipeOwner() = default;
    PipeOwner(PipeOwner&&) = default;
    PipeOwner& operator=(PipeOwner&&) = default;
    ~PipeOwner() noexcept(false);

    FdOwner readEnd;
    FdOwner writeEnd;
};

// Takes what open or pipe has just returned. The result is never 0, 1 or 2, even in a process
// without its standard streams: a pipe in their place would get the tool's own messages or be
// overwritten by a child's streams. A descriptor below 0, or a failure to move one, raises
// SystemError with the given word.
FdOwner keptAboveStreams(int descriptor, char const* failure);

// A new pipe. Neither end is 0, 1 or 2. A failure raises SystemError with that word.
PipeOwner openPipe(char const* failure);

// Sets O_NONBLOCK; failure raises SystemError with the given word.
void setNonBlocking(int descriptor, char const* failure);

} // namespace orvek

#endif
