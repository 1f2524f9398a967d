#include "mail/lib/quota/get_dir_size.h"

#include "lib/files/next_entry.h"
#include "lib/report/owned.h"

#include <algorithm>
#include <cerrno>

#include <sys/stat.h>
#include <unistd.h>

namespace {

constexpr unsigned int block_shift = 9;

sizequota_t share(struct stat const& info, int in_blocks)
{
    return in_blocks != 0 ? info.st_blocks : info.st_size;
}

sizequota_t in_bytes(sizequota_t size, int in_blocks)
{
    return in_blocks != 0 ? size << block_shift : size;
}

// -1 when the directory cannot be entered or read, or when the way back fails.
sizequota_t count_dir(char const* path, int in_blocks)
{
    CString const before(getcwd(nullptr, 0));
    if (!before || chdir(path) != 0)
        return -1;
    sizequota_t const size = count_cur_dir(in_blocks);
    int const error = errno;
    if (chdir(before.get()) != 0)
        return -1;
    errno = error;
    return size;
}

// Stores in *size what an entry of the working directory takes with everything below it. False
// when the way back failed.
bool count_entry(OpenDir const& stream, char const* name, int in_blocks, sizequota_t* size)
{
    struct stat info = {};
    if (lstat(name, &info) != 0)
        return true;
    if (!S_ISDIR(info.st_mode)) {
        *size = share(info, in_blocks);
        return true;
    }
    if (chdir(name) != 0)
        return true;
    *size = share(info, in_blocks);
    add_size(size, std::max<sizequota_t>(count_cur_dir(in_blocks), 0));
    return fchdir(dirfd(stream.get())) == 0;
}

} // namespace

sizequota_t get_dir_size(char const* path, int in_blocks)
{
    struct stat info = {};
    if (lstat(path, &info) != 0)
        return -1;
    sizequota_t size = share(info, in_blocks);
    if (S_ISDIR(info.st_mode)) {
        sizequota_t const below = count_dir(path, in_blocks);
        if (below < 0)
            return -1;
        add_size(&size, below);
    }
    return in_bytes(size, in_blocks);
}

sizequota_t count_cur_dir(int in_blocks)
{
    OpenDir stream(opendir("."));
    if (!stream)
        return -1;
    sizequota_t sum = 0;
    char const* name = nullptr;
    int more = 0;
    while ((more = next_entry(stream, &name)) > 0) {
        sizequota_t size = 0;
        bool const is_back = count_entry(stream, name, in_blocks, &size);
        add_size(&sum, size);
        if (!is_back) {
            // Deliberate: the directory stays open. The working directory is lost, and this
            // descriptor is the last hold on it.
            static_cast<void>(stream.release());
            break;
        }
    }
    return more < 0 ? -1 : sum;
}
