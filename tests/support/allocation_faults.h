// allocation_faults - makes allocations of arrays fail in the code under test
//
// While an ArrayAllocationFailure lives, every new of an array raises std::bad_alloc. This holds
// for the program's own calls. Link the program with --wrap for _Znam.

#ifndef MAILVEK_TESTS_SUPPORT_ALLOCATION_FAULTS_H
#define MAILVEK_TESTS_SUPPORT_ALLOCATION_FAULTS_H

#include <cstddef>
#include <new>

class ArrayAllocationFailure
{
public:
    ArrayAllocationFailure() { in_force = true; }
    ~ArrayAllocationFailure() { in_force = false; }
    ArrayAllocationFailure(ArrayAllocationFailure const&) = delete;
    ArrayAllocationFailure& operator=(ArrayAllocationFailure const&) = delete;

    inline static bool in_force = false;
};

extern "C" {

void* __real__Znam(std::size_t size);

[[gnu::used]] inline void* __wrap__Znam(std::size_t size)
{
    if (ArrayAllocationFailure::in_force)
        throw std::bad_alloc();
    return __real__Znam(size);
}

} // extern "C"

#endif
