// fd_owner - owners of descriptors, and how the process layer makes pipes
//
// FdOwner closes the descriptor it owns, or refers to one that stays someone else's. PipeOwner
// holds the two ends of a pipe.
//
// Failures: close() raises SystemError "close"; the fields are reset all the same. So does the
// destructor, unless an exception is in flight: then it closes quietly and keeps errno. The
// destructor of PipeOwner closes the write end first and the read end in any case, and raises
// "pipe read-end close" with the first error number. A destructor that raises must never be run
// by a container or a smart pointer of the standard library, which would end the process: keep
// these owners as locals, as members or in plain arrays.

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

// Takes what open or pipe has just returned. The result is never 0, 1 or 2, even where the
// process was started without its standard streams: a pipe to a child that sat there would
// receive the tool's own messages, or be run over when a child's streams are put in place. A
// descriptor below 0, or a failure to move one, raises SystemError with the given word.
FdOwner keptAboveStreams(int descriptor, char const* failure);

// A new pipe, neither end of which is 0, 1 or 2; failure raises SystemError with that word.
PipeOwner openPipe(char const* failure);

// Sets O_NONBLOCK; failure raises SystemError with the given word.
void setNonBlocking(int descriptor, char const* failure);

} // namespace orvek

#endif
