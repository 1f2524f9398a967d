#include "lib/files/copy_file.h"

#include "lib/beneath/opened_file.h"
#include "lib/beneath/place.h"
#include "lib/beneath/rights.h"
#include "lib/beneath/temporary_file.h"
#include "lib/files/op_locks.h"
#include "lib/report/failure.h"
#include "lib/report/liblog.h"
#include "lib/report/owned.h"
#include "lib/report/product_log.h"

#include <cerrno>
#include <cstdarg>
#include <cstdio>
#include <cstdlib>
#include <cstring>

#include <fcntl.h>
#include <sys/stat.h>
#include <syslog.h>
#include <unistd.h>

namespace {

constexpr std::size_t block_size = 4096;
constexpr mode_t new_file_mode = 0600; // until the file has its owner

enum class Copied
{
    whole,
    read_failed,
    write_failed,
};

bool write_block(int to, char const* block, ssize_t length)
{
    ssize_t written = 0;
    do
        written = write(to, block, static_cast<std::size_t>(length));
    while (written == 0);
    // A short write is a failure that sets no errno.
    if (written > 0 && written != length)
        errno = EIO;
    return written == length;
}

Copied copy_blocks(int from, int to)
{
    char block[block_size];
    ssize_t got = 0;
    while ((got = read(from, block, sizeof block)) > 0)
        if (!write_block(to, block, got))
            return Copied::write_failed;
    return got < 0 ? Copied::read_failed : Copied::whole;
}

// Opens a regular file with one name only: anything else may have been planted to be read as root.
OpenDescriptor open_source(char const* filename)
{
    char const* name = nullptr;
    OpenDescriptor const parent = open_parent(filename, name);
    return OpenDescriptor(
        parent.get() < 0 ? -1
                         : open_file_beneath(parent.get(), name, O_RDONLY, any_size).release());
}

int open_target(char const* filename, mode_t mode)
{
    char const* name = nullptr;
    OpenDescriptor const parent = open_parent(filename, name);
    return parent.get() < 0
               ? -1
               : open_or_make_beneath(parent.get(), name, O_WRONLY, any_size, mode).release();
}

// The file to write, or standard output for "-". Standard output is never closed here.
class Target
{
public:
    Target(char const* name, mode_t mode)
        : opened(is_stdout(name) ? -1 : open_target(name, mode)),
          descriptor(is_stdout(name) ? STDOUT_FILENO : opened.get())
    {
    }

    int get() const { return descriptor; }
    int close_now() { return opened.close_now(); }

    // True for standard output.
    [[nodiscard]] bool make_empty() { return opened.get() < 0 || ftruncate(opened.get(), 0) == 0; }

    // Whether this is the file that info describes, under whatever path.
    [[nodiscard]] bool is_open_on(struct stat const& info) const
    {
        struct stat own = {};
        return opened.get() >= 0 && fstat(opened.get(), &own) == 0 && own.st_dev == info.st_dev &&
               own.st_ino == info.st_ino;
    }

private:
    static bool is_stdout(char const* name) { return strcmp(name, "-") == 0; }

    OpenDescriptor opened;
    int descriptor;
};

int copy_into(OpenDescriptor& from, char const* src_fname, Target& to, char const* dst_fname)
{
    switch (copy_blocks(from.get(), to.get())) {
    case Copied::write_failed:
        return failure(1, "Error while copying file %s to %s: %s", src_fname, dst_fname,
                       strerror(errno));
    case Copied::read_failed:
        return failure(1, "Unable to copy file %s to %s: %s\n", src_fname, dst_fname,
                       strerror(errno));
    case Copied::whole:
        break;
    }
    if (to.close_now() != 0)
        return failure(1, "Unable to close file %s: %s\n", dst_fname, strerror(errno));
    if (from.close_now() != 0)
        return failure(1, "Unable to close file %s: %s\n", src_fname, strerror(errno));
    return 0;
}

int copy_under_lock(char const* src_fname, char const* dst_fname)
{
    OpenDescriptor from = open_source(src_fname);
    if (from.get() < 0)
        return failure(1, "Unable to open file %s: %s", src_fname, strerror(errno));
    struct stat info = {};
    if (fstat(from.get(), &info) != 0) {
        orvek_log(LOG_ERR, "Unable to get info for file '%s': %s", src_fname, strerror(errno));
        return 1;
    }
    Target to(dst_fname, info.st_mode & 0777);
    if (to.get() >= 0 && to.is_open_on(info))
        return 0;
    if (to.get() < 0 || !to.make_empty())
        return failure(1, "Unable to open file %s: %s", dst_fname, strerror(errno));
    return copy_into(from, src_fname, to, dst_fname);
}

// Removes the file explicitly: exit runs no destructor of a local object.
[[noreturn, gnu::format(printf, 2, 3)]] void give_up(TemporaryFile& temporary, char const* fmt, ...)
{
    temporary.remove();
    va_list args;
    va_start(args, fmt);
    vfatal(fmt, args);
}

void replace_by_copy(OpenDescriptor const& from, char const* src_filename,
                     char const* dest_filename, Rights const& rights)
{
    if (from.get() < 0)
        fatal("copy_file_atomic(%s -> %s): open failed", src_filename, dest_filename);
    char const* name = nullptr;
    OpenDescriptor const parent = open_parent(dest_filename, name);
    TemporaryFile to(parent.get(), name, new_file_mode);
    if (to.get() < 0)
        fatal("copy_file_atomic(%s -> %s): mkstemp failed", src_filename, dest_filename);

    // A failed read has no text of its own.
    if (copy_blocks(from.get(), to.get()) != Copied::whole)
        give_up(to, "copy_file_atomic(%s -> %s): write failed", src_filename, dest_filename);
    if (set_rights(to.get(), {rights.uid, rights.gid, same_mode}) != 0)
        give_up(to, "copy_file_atomic(%s -> %s): chown failed", src_filename, dest_filename);
    if (set_rights(to.get(), mode_only(rights.mode)) != 0)
        give_up(to, "copy_file_atomic(%s -> %s): chmod failed", src_filename, dest_filename);
    if (to.close_now() != 0)
        give_up(to, "copy_file_atomic(%s -> %s): flush failed", src_filename, dest_filename);
    if (to.replace() != 0)
        give_up(to, "copy_file_atomic(%s -> %s): rename failed", src_filename, dest_filename);
}

} // namespace

int copy_file(char const* src_fname, char const* dst_fname)
{
    if (strcmp(src_fname, dst_fname) == 0)
        return 0;
    OwnedLock lock(mk_lock(dst_fname, 1));
    if (!is_locked(lock.get()))
        return failure(1, "Error occurred while locking the file %s\n", dst_fname);
    int const result = copy_under_lock(src_fname, dst_fname);
    if (rm_lock(lock.release()) != 0)
        messlog2(0, 0, "Error occurred while unlocking the file %s\n", dst_fname);
    return result;
}

void copy_file_atomic(char const* src_filename, char const* dest_filename, uid_t uid, gid_t gid,
                      mode_t mode)
{
    replace_by_copy(open_source(src_filename), src_filename, dest_filename, {uid, gid, mode});
}

void copy_taken_file_atomic(int taken, char const* src_filename, char const* dest_filename,
                            uid_t uid, gid_t gid, mode_t mode)
{
    replace_by_copy(open_taken_file(taken, O_RDONLY), src_filename, dest_filename,
                    {uid, gid, mode});
}
