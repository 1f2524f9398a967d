#include "postfix/maps/indexed_file.h"

#include "lib/report/owned.h"
#include "postfix/maps/map_names.h"
#include "util/errors.h"
#include "util/retry_on_signal.h"

#include <algorithm>
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

// The most that the kernel moves in one call, and what it moves while a pipe fills.
constexpr size_t largest_block = 0x7ffff000;
constexpr size_t small_block = size_t(256) * 1024;

[[noreturn]] void raise(std::string const& path)
{
    int const code = errno;
    throwSystemError(path, code);
}

FileIdentity identityOf(struct stat const& info)
{
    return {info.st_dev, info.st_ino, info.st_size, info.st_mtim.tv_sec, info.st_mtim.tv_nsec};
}

// Negative when the file does not exist.
int openIndexed(std::string const& path)
{
    if (path.empty())
        return -1;
    int const before = errno;
    int const fd = open(path.c_str(), O_RDONLY);
    if (fd < 0 && errno != ENOENT)
        raise(path);
    errno = before;
    return fd;
}

struct stat statOf(int fd, std::string const& path)
{
    struct stat info = {};
    if (fstat(fd, &info) != 0)
        raise(path);
    return info;
}

// A file system may share the blocks of both files. One that cannot has to copy them.
ssize_t copyBlock(int from, int to, size_t size)
{
    ssize_t const shared = copy_file_range(from, nullptr, to, nullptr, size, 0);
    return shared > 0 ? shared : sendfile(to, from, nullptr, size);
}

// The directory is not root's alone: a name that somebody has put there is never followed.
int makeCopyFile(std::string const& path)
{
    {
        ErrnoKeeper const keeper;
        unlink(path.c_str());
    }
    int const fd = open(path.c_str(), O_WRONLY | O_CREAT | O_EXCL, 0600);
    if (fd < 0)
        raise(path);
    return fd;
}

} // namespace

std::string indexedFileOf(std::string const& map)
{
    size_t const colon = map.find(':');
    std::string const type = colon == std::string::npos ? "hash" : map.substr(0, colon);
    return type == "hash" || type == "btree" ? mapPath(map) + ".db" : std::string();
}

// A copy in the making, under a name of its own, which is removed unless it is finished.
class IndexedFileCopy::Part
{
public:
    // Takes the descriptor out of file, to which info belongs.
    Part(OpenDescriptor& file, struct stat const& info_, std::string const& copy_path_)
        : from(file.release()), info(info_), copy_path(copy_path_), path(copy_path + ".tmp"),
          to(makeCopyFile(path))
    {
    }
    ~Part()
    {
        ErrnoKeeper const keeper;
        if (!finished)
            unlink(path.c_str());
    }
    Part(Part const&) = delete;
    Part& operator=(Part const&) = delete;

    // Returns whether there is more.
    bool copy(size_t most)
    {
        if (left == 0)
            return false;
        size_t const size = std::min(most, left);
        ssize_t const moved = retryOnSignal([&] { return copyBlock(from.get(), to.get(), size); });
        if (moved < 0)
            raise(path);
        left = moved == 0 ? 0 : left - size_t(moved); // it may have become shorter
        return left > 0;
    }

    void finish()
    {
        if (fchown(to.get(), info.st_uid, info.st_gid) != 0 ||
            fchmod(to.get(), info.st_mode & 07777) != 0 || fsync(to.get()) != 0 ||
            to.close_now() != 0 || rename(path.c_str(), copy_path.c_str()) != 0)
            raise(path);
        finished = true;
    }

private:
    OpenDescriptor const from;
    struct stat const info;
    std::string const& copy_path;
    std::string const path;
    OpenDescriptor to;
    size_t left = size_t(info.st_size);
    bool finished = false;
};

IndexedFileCopy::IndexedFileCopy(std::string const& path_)
    : path(path_), copy_path(path_ + ".saved")
{
    begin();
}

void IndexedFileCopy::begin()
{
    part.reset();
    OpenDescriptor file(openIndexed(path));
    if (file.get() < 0)
        return;
    struct stat const info = statOf(file.get(), path);
    original = identityOf(info);
    part = std::make_unique<Part>(file, info, copy_path);
}

void IndexedFileCopy::proceed()
{
    if (part)
        part->copy(small_block);
}

void IndexedFileCopy::copyRest()
{
    while (part && part->copy(largest_block)) {
    }
}

void IndexedFileCopy::complete()
{
    copyRest();
    if (!isUnchanged()) {
        begin();
        copyRest();
    }
    if (!part)
        return;
    part->finish();
    part.reset();
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
    ErrnoKeeper const keeper;
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
