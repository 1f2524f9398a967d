// owned - owners for what plain functions return
//
// CString frees a string from malloc, OpenDir closes a directory stream, OpenFile a stdio
// stream, OpenCommand the stream of a popen, OpenDescriptor a descriptor. A failure to close is
// not seen: close by name where it matters. All of them keep errno, which belongs to the call
// that failed before they let go.

#ifndef MAILVEK_LIB_REPORT_OWNED_H
#define MAILVEK_LIB_REPORT_OWNED_H

#include <cerrno>
#include <cstdio>
#include <cstdlib>
#include <memory>
#include <utility>

#include <dirent.h>
#include <unistd.h>

// Restores errno at the end of its life to the value that it had at the beginning.
class ErrnoKeeper
{
public:
    ErrnoKeeper() = default;
    ~ErrnoKeeper() { errno = saved; }
    ErrnoKeeper(ErrnoKeeper const&) = delete;
    ErrnoKeeper& operator=(ErrnoKeeper const&) = delete;

private:
    int const saved = errno;
};

struct FreeMemory
{
    void operator()(void* memory) const { free(memory); }
};

struct CloseDir
{
    void operator()(DIR* dir) const
    {
        ErrnoKeeper const keeper;
        closedir(dir);
    }
};

struct CloseFile
{
    void operator()(FILE* file) const
    {
        ErrnoKeeper const keeper;
        fclose(file);
    }
};

struct CloseCommand
{
    void operator()(FILE* command) const
    {
        ErrnoKeeper const keeper;
        pclose(command);
    }
};

using CString = std::unique_ptr<char, FreeMemory>;
using OpenDir = std::unique_ptr<DIR, CloseDir>;
using OpenFile = std::unique_ptr<FILE, CloseFile>;
// Waits for the command's end, too.
using OpenCommand = std::unique_ptr<FILE, CloseCommand>;

// Owns the result of open, socket and their kind; a negative one owns nothing.
class OpenDescriptor
{
public:
    explicit OpenDescriptor(int descriptor) : descriptor(descriptor) {}
    ~OpenDescriptor()
    {
        ErrnoKeeper const keeper;
        if (descriptor >= 0)
            close(descriptor);
    }
    OpenDescriptor(OpenDescriptor const&) = delete;
    OpenDescriptor& operator=(OpenDescriptor const&) = delete;

    int get() const { return descriptor; }

    // Gives up ownership.
    int release() { return std::exchange(descriptor, -1); }

    // Closes now, so that a failure is seen: the result of close, or 0 when nothing is owned.
    int close_now() { return descriptor < 0 ? 0 : close(release()); }

private:
    int descriptor;
};

#endif
