// descriptor_path - a path that leads to what a descriptor is open on, and nowhere else
//
// For calls that take no descriptor of O_PATH. Needs /proc.

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
