// descriptor_path - a path that always leads to the file that a descriptor is open on
//
// For calls that refuse a descriptor opened with O_PATH. Needs /proc.

#ifndef MAILVEK_LIB_BENEATH_DESCRIPTOR_PATH_H
#define MAILVEK_LIB_BENEATH_DESCRIPTOR_PATH_H

#include <cstdio>

class DescriptorPath
{
public:
    explicit DescriptorPath(int fd) { snprintf(path, sizeof path, "/proc/self/fd/%d", fd); }
    [[nodiscard]] char const* get() const { return path; }

private:
    char path[32];
};

#endif
