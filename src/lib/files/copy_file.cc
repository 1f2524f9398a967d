#include "lib/files/copy_file.h"

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

// Standard output stays open: it is not of our making.
class Target
{
public:
    Target(char const* name, mode_t mode)
        : opened(is_stdout(name) ? -1 : open(name, O_WRONLY | O_CREAT | O_TRUNC, mode)),
          descriptor(is_stdout(name) ? STDOUT_FILENO : opened.get())
    {
    }

    int get() const { return descriptor; }
    int close_now() { return opened.close_now(); }

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
    OpenDescriptor from(open(src_fname, O_RDONLY));
    if (from.get() < 0)
        return failure(1, "Unable to open file %s: %s", src_fname, strerror(errno));
    struct stat info = {};
    if (fstat(from.get(), &info) != 0) {
        orvek_log(LOG_ERR, "Unable to get info for file '%s': %s", src_fname, strerror(errno));
        return 1;
    }
    Target to(dst_fname, info.st_mode & 07777);
    if (to.get() < 0)
        return failure(1, "Unable to open file %s: %s", dst_fname, strerror(errno));
    return copy_into(from, src_fname, to, dst_fname);
}

// The file is removed by hand: exit runs no destructor of a local object.
[[noreturn, gnu::format(printf, 2, 3)]] void give_up(char const* temporary, char const* fmt, ...)
{
    {
        ErrnoKeeper const keeper;
        unlink(temporary);
    }
    va_list args;
    va_start(args, fmt);
    vfatal(fmt, args);
}

CString name_beside(char const* filename)
{
    char* name = nullptr;
    if (asprintf(&name, "%s.XXXXXX", filename) < 0)
        fatal("Allocation failed");
    return CString(name);
}

} // namespace

int copy_file(char const* src_fname, char const* dst_fname)
{
    if (strcmp(src_fname, dst_fname) == 0)
        return 0;
    lock_struct_t* const lock = mk_lock(dst_fname, 1);
    if (!is_locked(lock)) {
        free_lock(lock);
        return failure(1, "Error occurred while locking the file %s\n", dst_fname);
    }
    int const result = copy_under_lock(src_fname, dst_fname);
    if (rm_lock(lock) != 0)
        messlog2(0, 0, "Error occurred while unlocking the file %s\n", dst_fname);
    return result;
}

void copy_file_atomic(char const* src_filename, char const* dest_filename, uid_t uid, gid_t gid,
                      mode_t mode)
{
    OpenDescriptor const from(open(src_filename, O_RDONLY));
    if (from.get() < 0)
        fatal("copy_file_atomic(%s -> %s): open failed", src_filename, dest_filename);
    CString const name = name_beside(dest_filename);
    OpenDescriptor to(mkstemp(name.get()));
    if (to.get() < 0)
        fatal("copy_file_atomic(%s -> %s): mkstemp failed", src_filename, dest_filename);

    char const* const temporary = name.get();
    Copied const copied = copy_blocks(from.get(), to.get());
    if (copied == Copied::read_failed)
        give_up(temporary, "copy_file_atomic(%s -> %s): read failed", src_filename, dest_filename);
    if (copied == Copied::write_failed)
        give_up(temporary, "copy_file_atomic(%s -> %s): write failed", src_filename, dest_filename);
    if (fchown(to.get(), uid, gid) != 0)
        give_up(temporary, "copy_file_atomic(%s -> %s): chown failed", src_filename, dest_filename);
    if (fchmod(to.get(), mode) != 0)
        give_up(temporary, "copy_file_atomic(%s -> %s): chmod failed", src_filename, dest_filename);
    if (to.close_now() != 0)
        give_up(temporary, "copy_file_atomic(%s -> %s): flush failed", src_filename, dest_filename);
    if (rename(temporary, dest_filename) != 0)
        give_up(temporary, "copy_file_atomic(%s -> %s): rename failed", src_filename,
                dest_filename);
}
