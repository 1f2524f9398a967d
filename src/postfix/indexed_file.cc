#include "postfix/indexed_file.h"

#include "lib/owned.h"
#include "postfix/map_names.h"
#include "util/errors.h"
#include "util/retry_on_signal.h"

#include <cerrno>
#include <cstdio>
#include <cstring>
#include <iostream>

#include <fcntl.h>
#include <sys/sendfile.h>
#include <sys/stat.h>
#include <unistd.h>

namespace orvek::mail::postfix {

namespace {

// What the kernel moves at most in one call.
constexpr size_t copy_block = 0x7ffff000;

[[noreturn]] void raise(std::string const& path)
{
    int const code = errno;
    throwSystemError(path, code);
}

FileIdentity identityOf(struct stat const& info)
{
    return {info.st_dev, info.st_ino, info.st_size, info.st_mtim.tv_sec, info.st_mtim.tv_nsec};
}

// Negative for a file that does not exist.
int openIndexed(std::string const& path)
{
    if (path.empty())
        return -1;
    int const fd = open(path.c_str(), O_RDONLY);
    if (fd < 0 && errno != ENOENT)
        raise(path);
    return fd;
}

struct stat statOf(int fd, std::string const& path)
{
    struct stat info = {};
    if (fstat(fd, &info) != 0)
        raise(path);
    return info;
}

// The file system may let both files share the blocks; the one that cannot is made to copy.
ssize_t copyBlock(int from, int to)
{
    ssize_t const shared = copy_file_range(from, nullptr, to, nullptr, copy_block, 0);
    return shared > 0 ? shared : sendfile(to, from, nullptr, copy_block);
}

void copyContent(int from, int to, off_t size, std::string const& path)
{
    for (off_t left = size; left > 0;) {
        ssize_t const moved = retryOnSignal([=] { return copyBlock(from, to); });
        if (moved < 0)
            raise(path);
        if (moved == 0)
            return;
        left -= moved;
    }
}

// Removes a file that was not completed.
class PartFile
{
public:
    explicit PartFile(std::string const& path_) : path(path_) {}
    ~PartFile()
    {
        ErrnoKeeper const keeper;
        if (!complete)
            unlink(path.c_str());
    }
    PartFile(PartFile const&) = delete;
    PartFile& operator=(PartFile const&) = delete;

    bool complete = false;

private:
    std::string const& path;
};

void makeCopy(int from, struct stat const& info, std::string const& path)
{
    // The directory is not root's alone: a name that somebody has put there is never followed.
    unlink(path.c_str());
    OpenDescriptor to(open(path.c_str(), O_WRONLY | O_CREAT | O_EXCL, 0600));
    if (to.get() < 0)
        raise(path);
    PartFile part(path);
    copyContent(from, to.get(), info.st_size, path);
    if (fchown(to.get(), info.st_uid, info.st_gid) != 0 ||
        fchmod(to.get(), info.st_mode & 07777) != 0 || fsync(to.get()) != 0 || to.close_now() != 0)
        raise(path);
    part.complete = true;
}

} // namespace

std::string indexedFileOf(std::string const& map)
{
    size_t const colon = map.find(':');
    std::string const type = colon == std::string::npos ? "hash" : map.substr(0, colon);
    return type == "hash" || type == "btree" ? mapPath(map) + ".db" : std::string();
}

IndexedFileCopy::IndexedFileCopy(std::string const& path_)
    : path(path_), copy_path(path_ + ".saved")
{
    OpenDescriptor const file(openIndexed(path));
    if (file.get() < 0)
        return;
    struct stat const info = statOf(file.get(), path);
    makeCopy(file.get(), info, copy_path);
    original = identityOf(info);
    armed = true;
}

IndexedFileCopy::~IndexedFileCopy()
{
    ErrnoKeeper const keeper;
    if (!armed)
        return;
    if (isUnchanged())
        unlink(copy_path.c_str());
    else if (rename(copy_path.c_str(), path.c_str()) != 0)
        std::cerr << path << " could not be put back from " << copy_path << ": " << strerror(errno)
                  << std::endl;
}

bool IndexedFileCopy::isUnchanged() const
{
    struct stat info = {};
    return stat(path.c_str(), &info) == 0 && identityOf(info) == original;
}

void IndexedFileCopy::dismiss()
{
    ErrnoKeeper const keeper;
    if (armed)
        unlink(copy_path.c_str());
    armed = false;
}

} // namespace orvek::mail::postfix
