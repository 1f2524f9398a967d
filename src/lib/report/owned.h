// owned - owners for what plain functions return
//
// CString frees a string from malloc, OpenDir closes a directory stream, OpenFile a stdio
// stream, OpenDescriptor a descriptor; their failures to close are not seen, so close by name
// where that matters. All of them keep errno, which belongs to the call that failed before
// they let go.

#ifndef MAILVEK_LIB_REPORT_OWNED_H
#define MAILVEK_LIB_REPORT_OWNED_H

#include <cerrno>
#include <cstdio>
#include <cstdlib>
#include <memory>
#include <utility>

#include <dirent.h>
#include <unistd.h>

// Gives errno back, at the end of its life, the value that it had at the beginning.
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

using CString = std::unique_ptr<char, FreeMemory>;
using OpenDir = std::unique_ptr<DIR, CloseDir>;
using OpenFile = std::unique_ptr<FILE, CloseFile>;

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
