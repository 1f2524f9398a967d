#include "util/mapped_output.h"

#include "util/retry_on_signal.h"

#include <cerrno>

#include <fcntl.h>
#include <sys/mman.h>
#include <unistd.h>

namespace orvek {

namespace {

// Large enough to make reserving and mapping cheap, small enough for the tool's memory.
constexpr std::size_t largest_window = std::size_t(256) * 1024;

int openWritable(std::string const& path)
{
    ErrnoKeeper const keeper;
    return open(path.c_str(), O_RDWR | O_CLOEXEC);
}

int reserve(int fd, off_t offset, std::size_t length)
{
    return retryOnSignal([=] {
        errno = posix_fallocate(fd, offset, off_t(length));
        return errno == 0 ? 0 : -1;
    });
}

} // namespace

MappedOutput::MappedOutput(std::string const& path) : file(openWritable(path))
{
    ErrnoKeeper const keeper;
    if (file.get() >= 0 && !mapNext())
        file.close_now();
}

MappedOutput::~MappedOutput()
{
    ErrnoKeeper const keeper;
    unmap();
}

bool MappedOutput::finish()
{
    off_t const end = begin + (pptr() - pbase());
    unmap();
    if (retryOnSignal([&] { return ftruncate(file.get(), end); }) == 0)
        return file.close_now() == 0;
    ErrnoKeeper const keeper;
    file.close_now();
    return false;
}

MappedOutput::int_type MappedOutput::overflow(int_type character)
{
    if (!mapNext())
        return traits_type::eof();
    if (!traits_type::eq_int_type(character, traits_type::eof()))
        sputc(traits_type::to_char_type(character));
    return traits_type::not_eof(character);
}

// Maps a smaller window if the disk has no room for a whole one.
bool MappedOutput::mapNext()
{
    int const before = errno;
    off_t const next = begin + (epptr() - pbase());
    std::size_t const page = std::size_t(sysconf(_SC_PAGESIZE));
    for (std::size_t length = largest_window; length >= page; length /= 2)
        if (mapAt(next, length)) {
            errno = before;
            return true;
        }
    return false;
}

bool MappedOutput::mapAt(off_t offset, std::size_t length)
{
    if (reserve(file.get(), offset, length) != 0)
        return false;
    void* const window =
        mmap(nullptr, length, PROT_READ | PROT_WRITE, MAP_SHARED, file.get(), offset);
    if (window == MAP_FAILED)
        return false;
    unmap();
    begin = offset;
    setp(static_cast<char*>(window), static_cast<char*>(window) + length);
    return true;
}

void MappedOutput::unmap()
{
    if (pbase())
        munmap(pbase(), std::size_t(epptr() - pbase()));
    setp(nullptr, nullptr);
}

} // namespace orvek
