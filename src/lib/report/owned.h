// owned - owners for the resources that plain functions return
//
// CString frees a string from malloc, OpenDir closes a directory stream, OpenFile a stdio stream,
// OpenCommand the stream of a popen, OpenDescriptor a descriptor. The destructors ignore a failure
// to close: close explicitly where it matters. They keep errno, which belongs to the call that
// failed before.

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
// Also waits for the command's end.
using OpenCommand = std::unique_ptr<FILE, CloseCommand>;

// Owns the result of open, socket and the like. Owns nothing when it is negative.
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

    // Closes now and returns the result of close, or 0 when nothing is owned.
    int close_now() { return descriptor < 0 ? 0 : close(release()); }

private:
    int descriptor;
};

#endif
