// mapping_faults - makes mmap fail in the code under test
//
// While a NoMappings lives, mmap fails with ENODEV, as on a file system that cannot map its files.
// This holds for the program's own calls. Link the program with --wrap for mmap.

#ifndef MAILVEK_TESTS_SUPPORT_MAPPING_FAULTS_H
#define MAILVEK_TESTS_SUPPORT_MAPPING_FAULTS_H

#include <cerrno>
#include <cstddef>

#include <sys/mman.h>
#include <sys/types.h>

namespace mapping_faults_detail {

inline bool refused = false;

}

class NoMappings
{
public:
    NoMappings() { mapping_faults_detail::refused = true; }
    ~NoMappings() { mapping_faults_detail::refused = false; }
    NoMappings(NoMappings const&) = delete;
    NoMappings& operator=(NoMappings const&) = delete;
};

extern "C" {

void* __real_mmap(void* address, size_t length, int rights, int flags, int fd, off_t offset);

[[gnu::used]] inline void* __wrap_mmap(void* address, size_t length, int rights, int flags, int fd,
                                       off_t offset)
{
    if (!mapping_faults_detail::refused)
        return __real_mmap(address, length, rights, flags, fd, offset);
    errno = ENODEV;
    return MAP_FAILED;
}

} // extern "C"

#endif
