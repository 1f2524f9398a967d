#include "mail/lib/home/attachment_copy.h"

#include "lib/beneath/given_path.h"
#include "lib/beneath/opened_file.h"
#include "lib/beneath/rights.h"
#include "lib/files/op_locks.h"
#include "lib/host/starter.h"
#include "lib/report/failure.h"
#include "lib/report/liblog.h"
#include "lib/report/owned.h"
#include "mail/lib/home/mail_tree.h"

#include <cerrno>
#include <cstring>

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

namespace {

constexpr off_t largest_upload = off_t{1} << 30;
constexpr mode_t attachment_mode = 0644;
constexpr std::size_t block_size = 65536;

[[nodiscard]] int open_failure(char const* file)
{
    return failure(1, "Unable to open file %s: %s", file, strerror(errno));
}

OpenDescriptor open_source(GivenPlace const& source)
{
    return source.found() ? open_file_beneath(source.dir(), source.name(), O_RDONLY, largest_upload)
                          : OpenDescriptor(-1);
}

// Does not empty an existing attachment yet: it may be the source.
OpenDescriptor open_copy(char const* copy, mode_t mode)
{
    char const* name = nullptr;
    OpenDescriptor const store = open_directory_of(copy, &name);
    if (store.get() < 0)
        return OpenDescriptor(-1);
    int const before = errno;
    OpenDescriptor there = open_file_beneath(store.get(), name, O_WRONLY, any_size);
    if (there.get() >= 0 || errno != ENOENT)
        return OpenDescriptor(there.release());
    errno = before;
    return make_file_beneath(store.get(), name, mode);
}

bool is_same_file(int one, int other)
{
    struct stat first = {};
    struct stat second = {};
    return fstat(one, &first) == 0 && fstat(other, &second) == 0 && first.st_dev == second.st_dev &&
           first.st_ino == second.st_ino;
}

// After a short write it writes again, which fails with the reason.
bool write_block(int to, char const* block, ssize_t length)
{
    while (length > 0) {
        ssize_t const written = write(to, block, static_cast<std::size_t>(length));
        if (written < 0)
            return false;
        block += written;
        length -= written;
    }
    return true;
}

int copy_content(int from, int to, char const* source, char const* copy)
{
    char block[block_size];
    bool written = ftruncate(to, 0) == 0;
    ssize_t got = 0;
    // The limit ends the copy of a source that keeps growing.
    for (off_t copied = 0; written && copied < largest_upload; copied += got) {
        got = read(from, block, sizeof block);
        if (got <= 0)
            break;
        written = write_block(to, block, got);
    }
    if (!written)
        return failure(1, "Error while copying file %s to %s: %s", source, copy, strerror(errno));
    if (got < 0)
        return failure(1, "Unable to copy file %s to %s: %s\n", source, copy, strerror(errno));
    return 0;
}

int copy_under_lock(char const* source, char const* copy)
{
    GivenPlace const place(source, starters_uid());
    OpenDescriptor from = open_source(place);
    if (from.get() < 0)
        return open_failure(source);
    struct stat info = {};
    if (fstat(from.get(), &info) != 0)
        return failure(1, "Unable to get info for file '%s': %s", source, strerror(errno));
    if (!place.gives(info))
        return open_failure(source);
    // During the copy its mode is no wider than the source's and than its final mode.
    OpenDescriptor to = open_copy(copy, info.st_mode & attachment_mode);
    if (to.get() < 0)
        return open_failure(copy);
    if (!is_same_file(from.get(), to.get()) &&
        copy_content(from.get(), to.get(), source, copy) != 0)
        return 1;
    {
        ErrnoKeeper const keeper;
        static_cast<void>(set_rights(to.get(), mode_only(attachment_mode)));
    }
    if (to.close_now() != 0)
        return failure(1, "Unable to close file %s: %s\n", copy, strerror(errno));
    if (from.close_now() != 0)
        return failure(1, "Unable to close file %s: %s\n", source, strerror(errno));
    return 0;
}

} // namespace

int copy_attachment(char const* source, char const* copy)
{
    OwnedLock lock(mk_lock(copy, 1));
    if (!is_locked(lock.get()))
        return failure(1, "Error occurred while locking the file %s\n", copy);
    int const result = copy_under_lock(source, copy);
    if (rm_lock(lock.release()) != 0)
        messlog2(0, 0, "Error occurred while unlocking the file %s\n", copy);
    return result;
}
